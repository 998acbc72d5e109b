#include "import/text_table.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "storedata/product_db.h"

namespace storegen {
namespace {

constexpr const char* kKey = PAPI_ACCESS_KEY;

struct ReaderCloser {
  void operator()(void* h) const { storegen::PAPI_Cleanup(h, kKey, "", "", "", ""); }
};
struct RecordReleaser {
  void operator()(PAPI_Pair* record) const {
    storegen::PAPI_ReleaseInfo(nullptr, kKey, "", record);
  }
};
using Reader = std::unique_ptr<void, ReaderCloser>;
using Record = std::unique_ptr<PAPI_Pair, RecordReleaser>;

// Checks that the built-in reader takes every line of |path| whole (longer
// lines it would cut into several products) and fills |ends| with the offset
// just past each line, for turning the reader's positions into line numbers.
bool ScanLines(const std::string& path, std::vector<long>* ends, std::string* err) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *err = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t start = 0;
  for (int line = 1; start < text.size(); ++line) {
    std::size_t nl = text.find('\n', start);
    std::size_t content_end = nl == std::string::npos ? text.size() : nl;
    std::size_t end = nl == std::string::npos ? text.size() : nl + 1;
    while (content_end > start && text[content_end - 1] == '\r')
      --content_end;
    if (content_end - start > static_cast<std::size_t>(kProductLineSize - 1)) {
      *err = path + ": line " + std::to_string(line) + " is longer than " +
             std::to_string(kProductLineSize - 1) + " bytes";
      return false;
    }
    if (std::memchr(text.data() + start, '\0', end - start) != nullptr) {
      *err = path + ": line " + std::to_string(line) + " holds a NUL byte";
      return false;
    }
    ends->push_back(static_cast<long>(end));
    start = end;
  }
  return true;
}

int LineAt(const std::vector<long>& ends, long position) {
  return static_cast<int>(std::lower_bound(ends.begin(), ends.end(), position) - ends.begin()) + 1;
}

// The column names as the reader takes them from the name line (at most 99),
// checked to be usable as the columns of one table.
bool ColumnNames(void* h, const std::string& path, std::vector<std::string>* names,
                 TableSummary* summary, std::string* err) {
  std::vector<char> line(kProductLineSize);
  if (!GetNameLine(line.data(), kProductLineSize, static_cast<FILE*>(h))) {
    *err = path + ": the file is empty (its first line must name the columns)";
    return false;
  }
  PAPI_Pair pairs[kMaxProductAttribs + 1] = {};
  int n = GetAllAttribName(line.data(), pairs);
  for (PAPI_Pair& pair : pairs) {
    if (pair.name != nullptr) names->emplace_back(pair.name);
    std::free(pair.name);
  }
  if (n < 0) throw std::bad_alloc();
  if (names->empty()) {
    *err = path + ": the first line names no columns";
    return false;
  }
  int total = 0;
  for (const char* p = line.data(); *p != '\0';) {
    p += std::strspn(p, psz_Tab);
    if (*p != '\0') ++total;
    p += std::strcspn(p, psz_Tab);
  }
  summary->columns = static_cast<int>(names->size());
  summary->ignored_columns = total - summary->columns;
  for (std::size_t i = 0; i < names->size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (my_stricmp((*names)[i].c_str(), (*names)[j].c_str()) == 0) {
        *err = path + ": column names \"" + (*names)[j] + "\" and \"" + (*names)[i] +
               "\" are the same without regard to case";
        return false;
      }
    }
  }
  return true;
}

}  // namespace

bool ReadTextTable(const std::string& path, TableWriter* writer, TableSummary* summary,
                   std::string* err) {
  std::vector<long> ends;
  if (!ScanLines(path, &ends, err)) return false;
  Reader reader(storegen::PAPI_Initialization(kKey, path.c_str(), "", "", ""));
  if (reader == nullptr) {
    *err = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  std::vector<std::string> names;
  if (!ColumnNames(reader.get(), path, &names, summary, err)) return false;
  if (!writer->Columns(path, names, err)) return false;
  int32_t position = 0;
  PAPI_Pair* next =
      storegen::PAPI_RetrieveFirstItem(reader.get(), kKey, 1, "", "", "", "", &position, nullptr);
  while (next != nullptr) {
    Record record(next);
    int line = LineAt(ends, position);
    if (record->name == nullptr || record->value[0] == '\0') {
      *err = path + ": line " + std::to_string(line) + " has no SKU";
      return false;
    }
    if (!writer->Row(record.get(), line, err)) return false;
    ++summary->rows;
    record.reset();  // every record goes back before the next is asked for
    next =
        storegen::PAPI_RetrieveNextItem(reader.get(), kKey, 1, "", "", "", "", &position, nullptr);
  }
  return true;
}

std::string DescribeTable(const char* what, const TableSummary& s, const std::string& path) {
  std::string line = std::string(what) + ": " + std::to_string(s.rows) +
                     (s.rows == 1 ? " row, " : " rows, ") + std::to_string(s.columns) +
                     " columns from " + path;
  if (s.ignored_columns > 0)
    line += " (" + std::to_string(s.ignored_columns) + " columns after the 99th left out)";
  return line + "\n";
}

std::string CategoryDbPathOf(std::string_view product_db) {
  std::size_t slash = product_db.find_last_of("/\\");
  std::size_t dot = product_db.rfind('.');
  if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash))
    product_db = product_db.substr(0, dot);
  return std::string(product_db) + ".cdb";
}

std::string AttributeDbPathOf(std::string_view product_db) {
  return std::string(product_db.substr(0, product_db.rfind('.'))) + ".adb";
}

}  // namespace storegen
