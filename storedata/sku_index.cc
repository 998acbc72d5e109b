#include "storedata/sku_index.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/file_identity.h"
#include "storedata/line_scanner.h"
#include "storedata/product_db.h"

namespace storegen {
namespace {

constexpr std::size_t kPieceMax = kProductLineSize - 1;
// Names the format; another layout gets another name, so an index written by
// another version of the program is built anew rather than misread.
constexpr char kMagic[8] = {'s', 'g', 's', 'k', 'u', 'i', 'x', '1'};
// Indexes kept by a process, for as many databases.
constexpr std::size_t kMaxKept = 8;

// The index file: this header, then |count| entries sorted by hash and, for
// equal hashes, by offset.
struct Header {
  char magic[sizeof kMagic];
  uint64_t dev, ino, size;
  int64_t mtime_sec, mtime_nsec, ctime_sec, ctime_nsec;
  uint64_t start;  // where the lines behind the name line begin
  uint64_t count;
};
// One piece of a line: the hash of its folded first field, and its offset.
struct Entry {
  uint64_t hash;
  uint64_t offset;
  bool operator<(const Entry& o) const {
    return hash != o.hash ? hash < o.hash : offset < o.offset;
  }
};

Header HeaderFor(const FileIdentity& id, off_t start, std::size_t count) {
  Header h{};
  std::memcpy(h.magic, kMagic, sizeof kMagic);
  h.dev = id.dev;
  h.ino = id.ino;
  h.size = static_cast<uint64_t>(id.size);
  h.mtime_sec = id.mtime.tv_sec;
  h.mtime_nsec = id.mtime.tv_nsec;
  h.ctime_sec = id.ctime.tv_sec;
  h.ctime_nsec = id.ctime.tv_nsec;
  h.start = static_cast<uint64_t>(start);
  h.count = count;
  return h;
}

// The first field of a piece as FirstFieldIs compares it: up to TAB, CR, LF
// or NUL.
std::string_view FirstField(std::string_view piece) {
  std::size_t n = 0;
  while (n < piece.size() && piece[n] != '\t' && piece[n] != '\r' && piece[n] != '\n' &&
         piece[n] != '\0') {
    ++n;
  }
  return piece.substr(0, n);
}

// FNV-1a of the key folded as FirstFieldIs folds it.
uint64_t KeyHash(std::string_view key) {
  const auto& fold = FoldTable();
  uint64_t h = 14695981039346656037ull;
  for (char c : key) {
    h ^= fold[static_cast<unsigned char>(c)];
    h *= 1099511628211ull;
  }
  return h;
}

class SkuIndex {
 public:
  // The index in the file |path|, mapped; null when it is missing or not an
  // index.
  static std::unique_ptr<SkuIndex> Load(const std::string& path);
  // The index of the lines of |fd| from |start| on, |fd| being the version
  // |id|; null on a read error or when the file changed while being read.
  static std::unique_ptr<SkuIndex> Build(int fd, off_t start, const FileIdentity& id);
  ~SkuIndex() {
    if (map_ != nullptr) munmap(map_, map_size_);
  }

  // Whether this is the index of the version |id| of a file whose lines
  // begin at |start|.
  bool Fits(const FileIdentity& id, off_t start) const {
    const Header want = HeaderFor(id, start, header_.count);
    return std::memcmp(&header_, &want, sizeof header_) == 0;
  }
  SkuIndexAnswer Find(int fd, std::string_view sku, std::string* piece, off_t* offset) const;
  // Writes it as the whole content of |out|.
  bool Save(AtomicFile* out) const {
    return out->Write(&header_, sizeof header_) &&
           out->Write(entries_, header_.count * sizeof(Entry));
  }

 private:
  SkuIndex() = default;

  Header header_{};
  const Entry* entries_ = nullptr;
  std::vector<Entry> built_;  // the entries of an index built by this process
  void* map_ = nullptr;       // the mapped file of a loaded one
  std::size_t map_size_ = 0;
};

std::unique_ptr<SkuIndex> SkuIndex::Load(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  void* map = MAP_FAILED;
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<std::size_t>(st.st_size) >= sizeof(Header)) {
    map = mmap(nullptr, static_cast<std::size_t>(st.st_size), PROT_READ, MAP_SHARED, fd, 0);
  }
  close(fd);
  if (map == MAP_FAILED) return nullptr;
  std::unique_ptr<SkuIndex> index(new SkuIndex());
  index->map_ = map;
  index->map_size_ = static_cast<std::size_t>(st.st_size);
  std::memcpy(&index->header_, map, sizeof(Header));
  const Header& h = index->header_;
  if (std::memcmp(h.magic, kMagic, sizeof kMagic) != 0 ||
      h.count != (index->map_size_ - sizeof(Header)) / sizeof(Entry) ||
      sizeof(Header) + h.count * sizeof(Entry) != index->map_size_) {
    return nullptr;
  }
  index->entries_ = reinterpret_cast<const Entry*>(static_cast<const char*>(map) + sizeof(Header));
  return index;
}

std::unique_ptr<SkuIndex> SkuIndex::Build(int fd, off_t start, const FileIdentity& id) {
  std::unique_ptr<SkuIndex> index(new SkuIndex());
  std::vector<Entry>& entries = index->built_;
  // Product lines are seldom shorter than this: mostly one allocation.
  entries.reserve(static_cast<std::size_t>(id.size / 128));
  LineScanner lines(fd, start, kPieceMax);
  std::string_view piece;
  while (lines.Next(&piece)) {
    entries.push_back({KeyHash(FirstField(piece)), static_cast<uint64_t>(lines.piece_offset())});
  }
  struct stat st;
  if (!lines.read_ok() || fstat(fd, &st) != 0 || !(FileIdentity(st) == id)) return nullptr;
  std::sort(entries.begin(), entries.end());
  index->header_ = HeaderFor(id, start, entries.size());
  index->entries_ = entries.data();
  return index;
}

SkuIndexAnswer SkuIndex::Find(int fd, std::string_view sku, std::string* piece,
                              off_t* offset) const {
  const uint64_t hash = KeyHash(sku);
  const Entry* end = entries_ + header_.count;
  const Entry* e = std::lower_bound(entries_, end, Entry{hash, 0});
  // Pieces whose first fields share the hash, in file order: the first
  // whose field is the SKU is the line.
  char buf[kPieceMax + 1];
  for (; e != end && e->hash == hash; ++e) {
    const std::size_t n = ReadPieceAt(fd, static_cast<off_t>(e->offset), kPieceMax, buf);
    if (FirstFieldIs(std::string_view(buf, n), sku)) {
      piece->assign(buf, n);
      *offset = static_cast<off_t>(e->offset);
      return SkuIndexAnswer::kFound;
    }
  }
  return SkuIndexAnswer::kMissing;
}

// What a process keeps of one database's index.
struct KeptIndex {
  std::string path;
  std::unique_ptr<SkuIndex> index;
  // The version of the database that an index could not be written for:
  // the next lookup in it builds one in memory.
  bool refused = false;
  FileIdentity refused_id;
};

std::vector<KeptIndex>& Kept() {
  static auto* kept = new std::vector<KeptIndex>();
  return *kept;
}

KeptIndex& KeptFor(const std::string& path) {
  auto& kept = Kept();
  for (KeptIndex& k : kept) {
    if (k.path == path) return k;
  }
  if (kept.size() >= kMaxKept) kept.erase(kept.begin());
  kept.push_back(KeptIndex{path, nullptr, false, {}});
  return kept.back();
}

// A fresh index of the version |id| of the database open as |fd|, written to
// |kept|'s path when that can be done; null when none is to be used.
std::unique_ptr<SkuIndex> Rebuild(KeptIndex* kept, int fd, off_t start, const FileIdentity& id) {
  AtomicFile out;
  const bool writable = out.Open(kept->path);
  if (!writable && !(kept->refused && kept->refused_id == id)) {
    // A single lookup scans no more than a build would read.
    kept->refused = true;
    kept->refused_id = id;
    return nullptr;
  }
  std::unique_ptr<SkuIndex> index = SkuIndex::Build(fd, start, id);
  // A failed write leaves the older index, which the next lookup rebuilds.
  if (index != nullptr && writable && index->Save(&out)) out.Commit(AtomicFile::Sync::kRename);
  return index;
}

}  // namespace

std::string SkuIndexPath(std::string_view db) {
  return std::string(db) + ".sku-index";
}

SkuIndexAnswer FindInSkuIndex(std::string_view db, int fd, off_t start, const char* sku,
                              std::string* piece, off_t* offset) {
  struct stat st;
  if (db.empty() || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return SkuIndexAnswer::kNoIndex;
  const std::string_view key(sku);
  // A SKU holding a separator is no line's first field.
  if (key.find_first_of(psz_Tab) != std::string_view::npos) return SkuIndexAnswer::kMissing;
  const FileIdentity id(st);
  if (ChangedRecently(id)) return SkuIndexAnswer::kNoIndex;
  try {
    KeptIndex& kept = KeptFor(SkuIndexPath(db));
    if (kept.index == nullptr || !kept.index->Fits(id, start)) {
      kept.index = SkuIndex::Load(kept.path);
      if (kept.index == nullptr || !kept.index->Fits(id, start))
        kept.index = Rebuild(&kept, fd, start, id);
      if (kept.index == nullptr) return SkuIndexAnswer::kNoIndex;
    }
    return kept.index->Find(fd, key, piece, offset);
  } catch (const std::bad_alloc&) {
    return SkuIndexAnswer::kNoIndex;
  }
}

void ForgetSkuIndexes() {
  Kept().clear();
}

}  // namespace storegen
