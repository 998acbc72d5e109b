#include "storedata/product_db.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"
#include "cgisupport/str_util.h"
#include "storedata/db_warnings.h"
#include "storedata/line_scanner.h"
#include "storedata/product_api.h"
#include "storedata/product_file.h"
#include "storedata/sku_index.h"

namespace storegen {
namespace {

// The name line of the file being iterated, read by PAPI_RetrieveFirstItem.
char szNameLine[kProductLineSize];

// Calls |visit| with each of a SKU line's fields until it returns false:
// every separator ends a field, so empty fields keep the columns aligned; a
// separator at the very end adds no empty last field.
template <typename Visit>
void ForEachSkuField(std::string_view line, Visit visit) {
  std::size_t start = 0;
  for (;;) {
    const std::size_t i = start + SpanWithout(line.data() + start, line.size() - start, psz_Tab[0],
                                              psz_Tab[1], psz_Tab[2], psz_Tab[2]);
    if (i == line.size()) break;
    if (!visit(line.substr(start, i - start))) return;
    start = i + 1;
  }
  if (start < line.size()) visit(line.substr(start));
}

char* CopyOf(std::string_view text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

FILE* AsFile(void* h) {
  return static_cast<FILE*>(h);
}

ProductInfo* NewProductInfo(FILE* fp, const char* sku) {
  ProductInfo* info = static_cast<ProductInfo*>(std::calloc(1, sizeof(ProductInfo)));
  if (info == nullptr) return nullptr;
  info->fp = fp;
  info->sku = CopyOf(sku != nullptr ? sku : "");
  if (info->sku == nullptr) {
    std::free(info);
    return nullptr;
  }
  return info;
}

// Moves the pairs of |info| into a malloc'd record with a null pair at the
// end and releases |info|. Null when memory runs out (|info| released deep).
PAPI_Pair* TakeRecord(ProductInfo* info) {
  if (info == nullptr) return nullptr;
  auto* record = static_cast<PAPI_Pair*>(std::malloc((info->count + 1) * sizeof(PAPI_Pair)));
  if (record == nullptr) {
    FreeProductInfo(info, 1);
    return nullptr;
  }
  std::memcpy(record, info->pairs, info->count * sizeof(PAPI_Pair));
  record[info->count] = PAPI_Pair{nullptr, nullptr};
  FreeProductInfo(info, 0);
  return record;
}

// GetSKULine reading through the stream, for files that are not regular.
int GetSKULineByStream(char* buf, int size, FILE* fp, const char* sku) {
  while (std::fgets(buf, size, fp) != nullptr) {
    std::string first(buf, std::strcspn(buf, psz_Tab));
    if (my_stricmp(first.c_str(), sku) == 0) {
      TrimEnd(buf);
      return 1;
    }
  }
  return 0;
}

// Reads the walk's next non-empty line after the byte offset *position (when
// given) into |line|, its trailing CRs and LFs cut. False at the end.
bool NextItemLine(FILE* fp, const int32_t* position, std::array<char, kProductLineSize>* line) {
  // Single lookups rewind the same file between two items.
  if (position != nullptr && std::ftell(fp) != *position) std::fseek(fp, *position, SEEK_SET);
  do {
    if (std::fgets(line->data(), static_cast<int>(line->size()), fp) == nullptr) return false;
  } while ((*line)[0] == '\r' || (*line)[0] == '\n');
  TrimEnd(line->data());
  return true;
}

// The name line of a walk, split into its names.
struct SplitNameLine {
  bool valid = false;
  std::string line;
  std::vector<std::string> names;
  // The names last picked by RetrieveNextItemColumns, and their columns
  // (-1: none).
  std::vector<std::string> picked_names;
  std::vector<int> picked;
};

// GetSKULine on a stream just behind the name line of the database |db|,
// through the database's SKU index: the same line in |buf| (kProductLineSize
// bytes), |fp| left where the scan leaves it. -1 when no index could be used
// (|fp| not moved).
int GetSKULineByIndex(char* buf, FILE* fp, const char* db, const char* sku) {
  const long start = std::ftell(fp);
  if (start < 0) return -1;
  std::string piece;
  off_t offset = 0;
  switch (FindInSkuIndex(db, fileno(fp), start, sku, &piece, &offset)) {
    case SkuIndexAnswer::kFound:
      std::memcpy(buf, piece.c_str(), piece.size() + 1);
      TrimEnd(buf);
      std::fseek(fp, static_cast<long>(offset + static_cast<off_t>(piece.size())), SEEK_SET);
      return 1;
    case SkuIndexAnswer::kMissing:
      std::fseek(fp, 0, SEEK_END);
      return 0;
    case SkuIndexAnswer::kNoIndex:
      break;
  }
  return -1;
}

// Small databases (a store's category database) are looked up many times a
// run. Their text is kept, by file, while the file's size and times stay the
// same; a file changed in the last two seconds is read again on every
// lookup, since it may change again without its times moving.
constexpr off_t kMaxKeptSize = 1 << 20;
constexpr std::size_t kMaxKeptFiles = 8;

struct KeptFile {
  FileIdentity identity;
  std::string text;
};

// What the reader keeps between lookups: small files' texts, the buffer a
// file is read into before it is kept, and the name line of the last walk,
// split. Lives until the process ends; ForgetProductFiles empties it.
struct ReaderMemory {
  std::vector<KeptFile> files;
  std::string fresh;
  SplitNameLine split;
};

ReaderMemory& Memory() {
  static auto* memory = new ReaderMemory();
  return *memory;
}

// The whole text of the small regular file open as |fd|, or null (a large
// or unusual file, or a read error). The text is valid until the next call.
const std::string* SmallFileText(int fd) {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxKeptSize) return nullptr;
  auto& kept = Memory().files;
  for (KeptFile& f : kept) {
    if (f.identity == FileIdentity(st)) return &f.text;
  }
  std::string& fresh = Memory().fresh;
  if (!ReadWholeFile(fd, st.st_size, &fresh)) return nullptr;
  const FileIdentity identity(st);
  if (ChangedRecently(identity)) return &fresh;
  auto stale = std::find_if(kept.begin(), kept.end(), [&](const KeptFile& f) {
    return f.identity.dev == st.st_dev && f.identity.ino == st.st_ino;
  });
  if (stale == kept.end()) {
    if (kept.size() >= kMaxKeptFiles) kept.erase(kept.begin());
    stale = kept.emplace(kept.end());
  }
  stale->identity = identity;
  stale->text.swap(fresh);  // no copy: |fresh| is read anew next time
  return &stale->text;
}

// The next line of |text| from |*pos| as a stream with a line buffer of
// kProductLineSize bytes reads it; |*pos| moves behind it. Empty at the end.
std::string_view NextLine(std::string_view text, std::size_t* pos) {
  std::string_view line =
      text.substr(*pos, std::min(text.size() - *pos, std::size_t{kProductLineSize - 1}));
  if (std::size_t lf = line.find('\n'); lf != std::string_view::npos) line = line.substr(0, lf + 1);
  *pos += line.size();
  return line;
}

// A line as the C string it is read into, its trailing CRs and LFs removed.
std::string LineText(std::string_view line) {
  std::string text(line.substr(0, line.find('\0')));
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n'))
    text.pop_back();
  return text;
}

// GetProductInfo on a small file's kept text: the name line and the SKU line
// as reading them through |fp| finds them, |fp| being left where that would
// leave it. False (nothing found, |fp| moved as well) when the file has no
// name line or no such SKU.
bool FindInText(std::string_view text, FILE* fp, const char* sku, std::string* name_line,
                std::string* sku_line) {
  std::size_t pos = 0;
  std::string_view line = NextLine(text, &pos);
  bool found = false;
  if (!line.empty()) {
    *name_line = LineText(line);
    const std::string_view key(sku);
    const bool can_match = key.find_first_of(psz_Tab) == std::string_view::npos;
    while (!(line = NextLine(text, &pos)).empty()) {
      if (can_match && FirstFieldIs(line, key)) {
        *sku_line = LineText(line);
        found = true;
        break;
      }
    }
  }
  std::fseek(fp, static_cast<long>(pos), SEEK_SET);
  return found;
}

}  // namespace

std::string WalkNameLine() {
  return szNameLine;
}

void SetWalkNameLine(std::string_view line) {
  CopyTruncated(szNameLine, line);
}

void ForgetProductFiles() {
  Memory() = ReaderMemory();
  ForgetSkuIndexes();
  szNameLine[0] = '\0';
}

void* PAPI_Initialization(const char* /*key*/, const char* db, const char* /*storeCfg*/,
                          const char* /*apiCfg*/, const char* /*cartDir*/) {
  if (db == nullptr) return nullptr;
  return FopenForReading(db);
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* /*key*/, const char* sku, int /*flag*/,
                             const char* db, const char* /*storeCfg*/, const char* /*apiCfg*/,
                             const char* /*cartDir*/, char** names) {
  if (h == nullptr || sku == nullptr) return nullptr;
  return TakeRecord(GetProductInfo(AsFile(h), sku, names, db));
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int flag, const char* db,
                                  const char* storeCfg, const char* apiCfg, const char* cartDir,
                                  int32_t* position, char** names) {
  if (h == nullptr) return nullptr;
  if (!GetNameLine(szNameLine, sizeof szNameLine, AsFile(h))) return nullptr;
  if (position != nullptr) *position = static_cast<int32_t>(std::ftell(AsFile(h)));
  return PAPI_RetrieveNextItem(h, key, flag, db, storeCfg, apiCfg, cartDir, position, names);
}

PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* /*key*/, int /*flag*/, const char* /*db*/,
                                 const char* /*storeCfg*/, const char* /*apiCfg*/,
                                 const char* /*cartDir*/, int32_t* position, char** names) {
  if (h == nullptr) return nullptr;
  FILE* fp = AsFile(h);
  std::array<char, kProductLineSize> line;
  if (!NextItemLine(fp, position, &line)) return nullptr;
  PAPI_Pair* record = TakeRecord(GetProductInfoNoRead(fp, names, 0, szNameLine, line.data()));
  if (record != nullptr) {
    std::size_t pairs = 0;
    while (record[pairs].name != nullptr)
      ++pairs;
    if (std::size_t fields = LineFieldCount(line.data()); fields < pairs)
      WarnShortLine(fp, line.data(), fields, pairs, record[fields].name);
  }
  if (position != nullptr) *position = static_cast<int32_t>(std::ftell(fp));
  return record;
}

PAPI_Pair* RetrieveFirstItemBlock(void* h, int32_t* position) {
  if (h == nullptr) return nullptr;
  if (!GetNameLine(szNameLine, sizeof szNameLine, AsFile(h))) return nullptr;
  if (position != nullptr) *position = static_cast<int32_t>(std::ftell(AsFile(h)));
  return RetrieveNextItemBlock(h, position);
}

PAPI_Pair* RetrieveNextItemBlock(void* h, int32_t* position) {
  return RetrieveNextItemColumns(h, position, {});
}

PAPI_Pair* RetrieveNextItemColumns(void* h, int32_t* position,
                                   std::initializer_list<const char*> only) {
  if (h == nullptr) return nullptr;
  FILE* fp = AsFile(h);
  std::array<char, kProductLineSize> line;
  if (!NextItemLine(fp, position, &line)) return nullptr;
  // The name line is split once for the whole walk.
  SplitNameLine* split = &Memory().split;
  if (!split->valid || split->line != szNameLine) {
    split->line = szNameLine;
    split->names.clear();
    for (std::string_view name : NameFields(szNameLine, kMaxProductAttribs))
      split->names.emplace_back(name);
    split->picked_names.clear();
    split->valid = true;
  }
  // A name without a value gets psz_NA, as in the record read pair by pair.
  std::vector<std::string_view> values;
  SplitSkuFields(line.data(), &values);
  auto value = [&values](std::size_t i) {
    return i < values.size() ? values[i] : std::string_view(psz_NA);
  };
  std::vector<ProdPairText> pairs;
  if (only.size() == 0) {
    pairs.reserve(split->names.size());
    for (std::size_t i = 0; i < split->names.size(); ++i)
      pairs.push_back({split->names[i], value(i)});
  } else {
    // The columns are looked up once for the walk.
    if (!std::equal(only.begin(), only.end(), split->picked_names.begin(),
                    split->picked_names.end())) {
      split->picked_names.assign(only.begin(), only.end());
      split->picked.clear();
      for (const char* wanted : only) {
        auto it = std::find_if(
            split->names.begin(), split->names.end(),
            [wanted](const std::string& n) { return my_stricmp(n.c_str(), wanted) == 0; });
        split->picked.push_back(
            it != split->names.end() ? static_cast<int>(it - split->names.begin()) : -1);
      }
    }
    for (int column : split->picked) {
      if (column >= 0) pairs.push_back({split->names[column], value(column)});
    }
  }
  PAPI_Pair* record = ProdRecordOf(pairs);
  if (values.size() < split->names.size()) {
    WarnShortLine(fp, line.data(), values.size(), split->names.size(), split->names[values.size()]);
  }
  if (position != nullptr) *position = static_cast<int32_t>(std::ftell(fp));
  return record;
}

int ProductDbFd(void* h) {
  return h != nullptr ? fileno(AsFile(h)) : -1;
}

int PAPI_ReleaseInfo(void* /*h*/, const char* /*key*/, const char* /*sku*/, PAPI_Pair* record) {
  if (record == nullptr) return 0;
  for (PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
    std::free(pair->name);
    std::free(pair->value);
  }
  std::free(record);
  return 0;
}

int PAPI_Cleanup(void* h, const char* /*key*/, const char* /*db*/, const char* /*storeCfg*/,
                 const char* /*apiCfg*/, const char* /*cartDir*/) {
  if (h != nullptr) std::fclose(AsFile(h));
  return 0;
}

ProductInfo* GetProductInfo(FILE* fp, const char* sku, char** names, const char* db) {
  if (fp == nullptr || sku == nullptr) return nullptr;
  std::string name_text, sku_text;
  const char* name_line;
  const char* sku_line;
  std::array<char, kProductLineSize> name_buf;
  std::array<char, kProductLineSize> sku_buf;
  if (const std::string* text = SmallFileText(fileno(fp))) {
    if (!FindInText(*text, fp, sku, &name_text, &sku_text)) return nullptr;
    name_line = name_text.c_str();
    sku_line = sku_text.c_str();
  } else {
    if (!GetNameLine(name_buf.data(), kProductLineSize, fp)) return nullptr;
    const int found = db != nullptr ? GetSKULineByIndex(sku_buf.data(), fp, db, sku) : -1;
    if (found == 0) return nullptr;
    if (found < 0 && !GetSKULine(sku_buf.data(), kProductLineSize, fp, sku)) return nullptr;
    name_line = name_buf.data();
    sku_line = sku_buf.data();
  }
  ProductInfo* info = NewProductInfo(fp, sku);
  if (info == nullptr) return nullptr;
  if (FillAttributeInfo(info, GetAttribCount(names), names, name_line, sku_line) < 0) {
    FreeProductInfo(info, 1);
    return nullptr;
  }
  return info;
}

ProductInfo* GetProductInfoNoRead(FILE* fp, char** names, int /*unused*/, const char* name_line,
                                  const char* sku_line) {
  ProductInfo* info = NewProductInfo(fp, "");
  if (info == nullptr) return nullptr;
  if (FillAttributeInfo(info, GetAttribCount(names), names, name_line, sku_line) < 0) {
    FreeProductInfo(info, 1);
    return nullptr;
  }
  return info;
}

int FillAttributeInfo(ProductInfo* info, int count, char** names, const char* name_line,
                      const char* sku_line) {
  if (info == nullptr) return -1;
  if (name_line == nullptr) name_line = "";
  if (sku_line == nullptr) sku_line = "";
  int n;
  if (count < 0 || names == nullptr) {
    n = GetAllAttribName(name_line, info->pairs);
    if (n < 0 || GetAllValue(sku_line, info->pairs, n) < 0) return -1;
  } else {
    n = count < kMaxProductAttribs ? count : kMaxProductAttribs;
    for (int i = 0; i < n; ++i) {
      int column = GetAttribIndex(name_line, names[i]);
      info->pairs[i].name = CopyOf(names[i]);
      info->pairs[i].value = column < 0 ? CopyOf(psz_NA) : GetAttribValue(sku_line, column);
      if (info->pairs[i].name == nullptr || info->pairs[i].value == nullptr) return -1;
    }
  }
  info->pairs[n] = PAPI_Pair{nullptr, nullptr};
  info->count = n;
  return n;
}

int GetNameLine(char* buf, int size, FILE* fp) {
  if (buf == nullptr || fp == nullptr || size < 2) return 0;
  std::fseek(fp, 0, SEEK_SET);
  if (std::fgets(buf, size, fp) == nullptr) return 0;
  TrimEnd(buf);
  return 1;
}

int GetSKULine(char* buf, int size, FILE* fp, const char* sku) {
  if (buf == nullptr || fp == nullptr || sku == nullptr || size < 2) return 0;
  if (size > kProductLineSize) size = kProductLineSize;
  const int fd = fileno(fp);
  const long start = std::ftell(fp);
  struct stat st;
  if (fd < 0 || start < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
    return GetSKULineByStream(buf, size, fp, sku);

  // The lines are read straight from the file; the stream is then put where
  // reading them through it would have left it.
  const std::string_view key(sku);
  const bool can_match = key.find_first_of(psz_Tab) == std::string_view::npos;
  LineScanner lines(fd, start, static_cast<std::size_t>(size) - 1);
  std::string_view line;
  bool any = false;
  off_t last_offset = 0;
  std::size_t last_length = 0;
  while (lines.Next(&line)) {
    any = true;
    if (can_match && FirstFieldIs(line, key)) {
      std::memcpy(buf, line.data(), line.size());
      buf[line.size()] = '\0';
      TrimEnd(buf);
      std::fseek(fp, lines.position(), SEEK_SET);
      return 1;
    }
    last_offset = lines.piece_offset();
    last_length = line.size();
  }
  // As after reading to the end: |buf| holds the last line read.
  if (any) ReadPieceAt(fd, last_offset, last_length, buf);
  std::fseek(fp, lines.position(), SEEK_SET);
  return 0;
}

int GetAttribCount(char** names) {
  if (names == nullptr) return -1;
  int count = 0;
  while (count < kMaxProductAttribs && names[count] != nullptr)
    ++count;
  return count;
}

int GetAttribIndex(const char* name_line, const char* name) {
  if (name_line == nullptr || name == nullptr) return -1;
  const std::string_view wanted(name);
  const auto& fold = FoldTable();
  int index = -1;
  int at = 0;
  ForEachNameField(name_line, SIZE_MAX, [&](std::string_view field) {
    const bool same =
        field.size() == wanted.size() &&
        std::equal(field.begin(), field.end(), wanted.begin(), [&](char a, char b) {
          return fold[static_cast<unsigned char>(a)] == fold[static_cast<unsigned char>(b)];
        });
    if (same) index = at;
    ++at;
    return !same;
  });
  return index;
}

// The walks ask for every name of every product, so no list of the fields
// is built: each field is copied as it is found.
int GetAllAttribName(const char* name_line, PAPI_Pair* pairs) {
  if (name_line == nullptr || pairs == nullptr) return 0;
  int n = 0;
  bool ok = true;
  ForEachNameField(name_line, kMaxProductAttribs, [&](std::string_view field) {
    pairs[n].name = CopyOf(field);
    ok = pairs[n].name != nullptr;
    if (ok) ++n;
    return ok;
  });
  return ok ? n : -1;
}

int GetAllValue(const char* sku_line, PAPI_Pair* pairs, int n) {
  if (pairs == nullptr || n <= 0) return 0;
  int fields = 0;
  bool ok = true;
  ForEachSkuField(sku_line != nullptr ? sku_line : "", [&](std::string_view field) {
    pairs[fields].value = CopyOf(field);
    ok = pairs[fields].value != nullptr;
    if (ok) ++fields;
    return ok && fields < n;
  });
  if (!ok) return -1;
  for (int i = fields; i < n; ++i) {
    pairs[i].value = CopyOf(psz_NA);
    if (pairs[i].value == nullptr) return -1;
  }
  return fields;
}

char* GetAttribValue(const char* sku_line, int position) {
  if (position < 0) return CopyOf(psz_NA);
  std::optional<std::string_view> value;
  int at = 0;
  ForEachSkuField(sku_line != nullptr ? sku_line : "", [&](std::string_view field) {
    if (at++ == position) value = field;
    return !value;
  });
  return CopyOf(value ? *value : std::string_view(psz_NA));
}

void TrimEnd(char* text) {
  if (text == nullptr) return;
  std::size_t len = std::strlen(text);
  while (len > 0 && (text[len - 1] == '\r' || text[len - 1] == '\n'))
    text[--len] = '\0';
}

int my_stricmp(const char* a, const char* b) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (;; ++a, ++b) {
    int ca = std::tolower(static_cast<unsigned char>(*a));
    int cb = std::tolower(static_cast<unsigned char>(*b));
    if (ca != cb || ca == 0) return ca - cb;
  }
}

void FreeProductInfo(ProductInfo* info, int deep) {
  if (info == nullptr) return;
  if (deep) {
    // Every slot, not only those before the first null pair: a fill that ran
    // out of memory may leave a value behind a missing name.
    for (PAPI_Pair& pair : info->pairs) {
      std::free(pair.name);
      std::free(pair.value);
    }
  }
  std::free(info->sku);
  std::free(info);
}

}  // namespace storegen
