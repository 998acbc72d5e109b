#include "storedata/product_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "cgisupport/str_util.h"
#include "storedata/db_warnings.h"
#include "storedata/product_db.h"

namespace storegen {
namespace {

// The longest piece of a line the reader takes at once; the rest of an
// overlong line is a line of its own.
constexpr std::size_t kPieceMax = kProductLineSize - 1;
// Lines are walked, and read ahead of a walk through them, this much at a time.
constexpr std::size_t kBlockSize = 512 * 1024;
// A line read back at most this far from the one before reads the block
// around it: pages go through the products in file order, forwards or
// backwards. Lines further apart are read one by one.
constexpr off_t kNear = 16 * 1024;

bool IsSeparator(char c) {
  return c == psz_Tab[0] || c == psz_Tab[1] || c == psz_Tab[2];
}
static_assert(sizeof psz_Tab == 4, "three field separators");

// The piece as the reader takes it: a C string (up to a NUL) without its
// trailing CRs and LFs.
std::string_view LineText(std::string_view piece) {
  if (const void* nul = std::memchr(piece.data(), '\0', piece.size()))
    piece = piece.substr(0, static_cast<const char*>(nul) - piece.data());
  while (!piece.empty() && (piece.back() == '\r' || piece.back() == '\n'))
    piece.remove_suffix(1);
  return piece;
}

// Calls |field|(start, end) for each field of the |n| bytes at |p| as
// SplitSkuFields takes them: every separator ends a field, and the text
// behind the last one is a field when it is not empty. The separators are
// found sixteen bytes at a time.
template <typename Field>
void ForEachField(const char* p, std::size_t n, Field field) {
  std::size_t start = 0;
  std::size_t k = 0;
#if defined(__SSE2__)
  const __m128i tab = _mm_set1_epi8(psz_Tab[0]);
  const __m128i cr = _mm_set1_epi8(psz_Tab[1]);
  const __m128i lf = _mm_set1_epi8(psz_Tab[2]);
  for (; k + 16 <= n; k += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k));
    auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(x, tab), _mm_cmpeq_epi8(x, cr)), _mm_cmpeq_epi8(x, lf))));
    while (mask != 0) {
      const std::size_t i = k + static_cast<std::size_t>(__builtin_ctz(mask));
      field(start, i);
      start = i + 1;
      mask &= mask - 1;
    }
  }
#endif
  for (; k < n; ++k) {
    if (IsSeparator(p[k])) {
      field(start, k);
      start = k + 1;
    }
  }
  if (start < n) field(start, n);
}

// Whether |behind|, the byte behind a line's text of |length| bytes, ends
// the text there as the walk took it: a line end, the NUL that cut it, or
// anything behind the longest piece of an overlong line.
bool EndsText(char behind, std::size_t length) {
  return behind == '\r' || behind == '\n' || behind == '\0' || length == kPieceMax;
}

bool ReadFully(int fd, char* buf, std::size_t length, off_t at, std::size_t* done) {
  *done = 0;
  while (*done < length) {
    ssize_t n = pread(fd, buf + *done, length - *done, at + static_cast<off_t>(*done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    *done += static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace

std::vector<std::string_view> NameFields(std::string_view line, std::size_t limit) {
  std::vector<std::string_view> fields;
  ForEachNameField(line, limit, [&fields](std::string_view f) {
    fields.push_back(f);
    return true;
  });
  return fields;
}

void SplitSkuFields(std::string_view line, std::vector<std::string_view>* fields) {
  fields->clear();
  ForEachField(line.data(), line.size(), [&](std::size_t start, std::size_t end) {
    fields->push_back(line.substr(start, end - start));
  });
}

std::string_view ProductFile::Line::Field(int column, bool* present) const {
  const bool has = column >= 0 && static_cast<std::size_t>(column) < fields.size();
  if (present != nullptr) *present = has;
  return has ? fields[static_cast<std::size_t>(column)] : std::string_view(psz_NA);
}

std::unique_ptr<ProductFile> ProductFile::Open(int fd) {
  std::unique_ptr<ProductFile> file(new ProductFile(fd));
  static uint64_t files_opened = 0;
  file->serial_ = ++files_opened;
  // The name line is the first piece, whatever it begins with.
  const std::string_view piece = file->PieceAt(0);
  if (piece.empty()) return nullptr;
  file->name_line_.assign(LineText(piece));
  file->walk_ = static_cast<off_t>(piece.size());
  for (std::string_view name : NameFields(file->name_line_, kMaxProductAttribs))
    file->names_.emplace_back(name);
  return file;
}

ProductFile::~ProductFile() {
  close(fd_);
}

int ProductFile::Column(std::string_view name) const {
  for (std::size_t i = 0; i < names_.size(); ++i) {
    const std::string& n = names_[i];
    if (n.size() == name.size() && std::equal(n.begin(), n.end(), name.begin(), [](char a, char b) {
          return AsciiLower(a) == AsciiLower(b);
        })) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

bool ProductFile::Fill(off_t at) {
  block_.resize(kBlockSize);
  block_offset_ = at;
  block_size_ = 0;
  const bool ok = ReadFully(fd_, block_.data(), block_.size(), at, &block_size_);
  block_ends_file_ = !ok || block_size_ < block_.size();
  return ok;
}

bool ProductFile::Holds(off_t at, std::size_t length) const {
  if (at < block_offset_) return false;
  const auto begin = static_cast<std::size_t>(at - block_offset_);
  if (begin > block_size_) return false;
  return block_size_ - begin >= length || block_ends_file_;
}

std::string_view ProductFile::PieceAt(off_t at) {
  if (!Holds(at, kPieceMax) && !Fill(at)) return {};
  const auto begin = static_cast<std::size_t>(at - block_offset_);
  const std::size_t available = std::min(block_size_ - begin, kPieceMax);
  const char* start = block_.data() + begin;
  const void* lf = std::memchr(start, '\n', available);
  return std::string_view(start,
                          lf != nullptr ? static_cast<const char*>(lf) - start + 1 : available);
}

bool ProductFile::Next(Line* line) {
  for (;;) {
    const std::string_view piece = PieceAt(walk_);
    if (piece.empty()) return false;
    const off_t offset = walk_;
    walk_ += static_cast<off_t>(piece.size());
    // Empty lines are passed over.
    if (piece[0] == '\r' || piece[0] == '\n') continue;
    const std::string_view text = LineText(piece);
    line->place = Place{offset, static_cast<uint32_t>(text.size())};
    SplitSkuFields(text, &line->fields);
    if (line->fields.size() < names_.size()) {
      WarnShortLine(fd_, walk_, text, line->fields.size(), names_.size(),
                    names_[line->fields.size()]);
    }
    return true;
  }
}

bool ProductFile::Read(const Place& place, std::string* text) {
  const Place last = std::exchange(last_, place);
  if (!Holds(place.offset, place.length + 1)) {
    const off_t end = place.offset + static_cast<off_t>(place.length);
    const off_t last_end = last.offset + static_cast<off_t>(last.length);
    if (place.offset >= last_end && place.offset - last_end < kNear) {
      Fill(place.offset);
    } else if (end <= last.offset && last.offset - end < kNear) {
      Fill(std::max<off_t>(0, end + 1 - static_cast<off_t>(kBlockSize)));
    } else {
      // The line and the byte behind it.
      text->resize(place.length + 1);
      std::size_t done = 0;
      if (!ReadFully(fd_, text->data(), text->size(), place.offset, &done) || done < place.length)
        return false;
      const bool ends = done == place.length || EndsText((*text)[place.length], place.length);
      text->resize(place.length);
      return ends;
    }
  }
  if (!Holds(place.offset, place.length)) return false;
  const auto begin = static_cast<std::size_t>(place.offset - block_offset_);
  if (block_size_ - begin < place.length) return false;
  text->assign(block_.data() + begin, place.length);
  // A line that grew in place would otherwise be read cut short.
  const std::size_t behind = begin + place.length;
  if (behind < block_size_) return EndsText(block_[behind], place.length);
  char next = '\0';
  return block_ends_file_ || pread(fd_, &next, 1, place.offset + place.length) == 0 ||
         EndsText(next, place.length);
}

void ProductFile::Record(std::string* text, std::vector<PAPI_Pair>* pairs) const {
  // Every name gets a value: the line's field, or "NA" behind its end.
  const std::size_t names = names_.size();
  pairs->resize(names + 1);
  PAPI_Pair* pair = pairs->data();
  for (std::size_t i = 0; i < names; ++i)
    pair[i] = {const_cast<char*>(names_[i].c_str()), const_cast<char*>(psz_NA)};
  pair[names] = {nullptr, nullptr};
  char* p = text->data();
  std::size_t taken = 0;
  ForEachField(p, text->size(), [&](std::size_t start, std::size_t end) {
    if (end < text->size()) p[end] = '\0';
    if (taken < names) pair[taken++].value = p + start;
  });
}

}  // namespace storegen
