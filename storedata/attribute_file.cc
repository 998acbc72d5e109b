// The ".adb" file: reading and writing the attribute lines, the line reader,
// and the database / working-copy names.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"
#include "storedata/attribute_db.h"
#include "storedata/attribute_pool.h"

namespace storegen {
namespace {

constexpr std::size_t kLineChunk = 1000;

struct FreeDeleter {
  void operator()(char* p) const { std::free(p); }
};

// Splits |line| at TAB and LF, runs of separators counting as one.
std::vector<std::string_view> SplitFields(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == '\t' || line[i] == '\n'))
      ++i;
    if (i == line.size()) break;
    std::size_t end = line.find_first_of("\t\n", i);
    if (end == std::string_view::npos) end = line.size();
    fields.push_back(line.substr(i, end - i));
    i = end;
  }
  return fields;
}

}  // namespace

std::list<std::string> ParseValueList(std::string_view field) {
  std::string text(field);
  std::list<std::string> values;
  std::size_t start = 0;
  std::size_t i = 0;
  while (i < text.size()) {
    if (text[i] != ',') {
      ++i;
      continue;
    }
    if (i > 0 && text[i - 1] == '\\') {
      // An escaped comma: drop the backslash; the byte after the comma is
      // taken as text whatever it is, so "a\,,b" stays one value "a,,b".
      text.erase(i - 1, 1);
      if (i < text.size()) ++i;
      continue;
    }
    values.push_back(text.substr(start, i - start));
    start = i + 1;
    if (start == text.size()) values.emplace_back();
    ++i;
  }
  if (start < text.size()) values.push_back(text.substr(start));
  return values;
}

void ParseAttributeLine(std::string_view line, AttributeNode* node) {
  std::vector<std::string_view> fields = SplitFields(line);
  if (fields.size() > 0) node->index = std::atoi(std::string(fields[0]).c_str());
  if (fields.size() > 1) node->type = std::atoi(std::string(fields[1]).c_str());
  if (fields.size() > 2) node->label = std::string(fields[2]);
  if (fields.size() > 3) node->values = ParseValueList(fields[3]);
}

std::string FormatAttributeLine(const AttributeNode& node) {
  std::string line = std::to_string(node.index) + "\t" + std::to_string(node.type) + "\t" +
                     node.label.value_or("") + "\t";
  bool first = true;
  for (const std::string& value : node.values) {
    if (!first) line += ',';
    first = false;
    for (char c : value) {
      if (c == ',') line += '\\';
      line += c;
    }
  }
  line += '\n';
  return line;
}

bool ReadAttributeFile(AttributePool* pool) {
  FilePtr fp(FopenForReading(pool->file_name.c_str(), "rb"));
  if (!fp) return true;
  try {
    char* raw = nullptr;
    while (tb_fgets(&raw, fp.get()) != nullptr) {
      std::unique_ptr<char, FreeDeleter> line(raw);
      if (line.get()[0] == '\r' || line.get()[0] == '\n') continue;
      AttributeNode node;
      ParseAttributeLine(line.get(), &node);
      InsertAttributeInOrder(*pool, std::move(node));
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

bool WriteAttributeFile(const AttributePool& pool) {
  try {
    std::string content;
    for (const AttributeNode& node : pool.attributes) {
      if (node.index != 0) content += FormatAttributeLine(node);
    }
    AtomicFile out;
    return out.Open(pool.file_name) && out.Write(content.data(), content.size()) && out.Commit();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

char* tb_fgets(char** line, FILE* fp) {
  if (line != nullptr) *line = nullptr;
  if (fp == nullptr) return nullptr;
  std::size_t capacity = kLineChunk;
  std::size_t len = 0;
  char* buf = static_cast<char*>(std::malloc(capacity));
  if (buf == nullptr) return nullptr;
  int c;
  while ((c = std::getc(fp)) != EOF) {
    if (c == '\r') continue;
    if (len + 1 == capacity) {
      char* grown = static_cast<char*>(std::realloc(buf, capacity + kLineChunk));
      if (grown == nullptr) {
        std::free(buf);
        return nullptr;
      }
      buf = grown;
      capacity += kLineChunk;
    }
    buf[len++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  if ((c == EOF && std::ferror(fp)) || len == 0) {
    std::free(buf);
    return nullptr;
  }
  buf[len] = '\0';
  if (line != nullptr) *line = buf;
  return buf;
}

int AttributeFileName(const char* store_config, char* db_name, char* work_name, int size) {
  char value[256];
  if (store_config == nullptr ||
      GetConfigItem(store_config, "ProductDatabase", value, sizeof value, 1) != 1) {
    // The message catalogue has no text for this case, so nothing is printed.
    return 0;
  }
  if (size <= 0) return 0;
  std::string name = value;
  if (name.size() >= 4 && name[name.size() - 4] == '.') {
    name.replace(name.size() - 3, 3, "adb");
  } else {
    name += ".adb";
  }
  std::size_t n = CopyTruncated(db_name, static_cast<std::size_t>(size), name);
  std::string work(db_name, n);
  if (!work.empty()) work.back() = '_';
  CopyTruncated(work_name, static_cast<std::size_t>(size), work);
  return 0;
}

AttributePool* OpenAttributeDataSource(void* /*unused*/, int copy, const char* db_name,
                                       const char* work_name) {
  if (work_name != nullptr && access(work_name, F_OK) == 0) return AD_InitAttributePool(work_name);
  if (copy && work_name != nullptr) {
    iCopyFile(db_name, work_name);
    return AD_InitAttributePool(work_name);
  }
  return AD_InitAttributePool(db_name);
}

int iCopyFile(const char* src, const char* dst) {
  if (src == nullptr || dst == nullptr) return 1;
  return tb_CopyFile(src, dst) != 0 ? 1 : 0;
}

}  // namespace storegen
