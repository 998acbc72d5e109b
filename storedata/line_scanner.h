// Reading a text product database's lines straight from its file descriptor
// as a stream with a line buffer of a given size would read them, for single
// lookups and the SKU index (sku_index.h): large blocks, only the first field
// of each line looked at, the stream itself left alone.
#ifndef STOREGEN_STOREDATA_LINE_SCANNER_H_
#define STOREGEN_STOREDATA_LINE_SCANNER_H_

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

namespace storegen {

// The lines of a file as a stream with a line buffer of |piece_max| + 1
// bytes reads them: through a LF, or |piece_max| bytes of a longer line, each
// piece being a line of its own. Reads from the file descriptor at a given
// offset and leaves the stream alone. All scanners share one buffer: only one
// may be in use at a time.
class LineScanner {
 public:
  LineScanner(int fd, off_t start, std::size_t piece_max)
      : fd_(fd), base_(start), piece_max_(piece_max), buf_(Buffer()) {}

  // The next piece, valid until the next call; false at the end of the file
  // (or on a read error, where the stream would stop as well).
  bool Next(std::string_view* piece) {
    if (end_ - begin_ < piece_max_ && !eof_) Fill();
    std::size_t available = end_ - begin_ < piece_max_ ? end_ - begin_ : piece_max_;
    if (available == 0) return false;
    const char* start = buf_.data() + begin_;
    const void* lf = std::memchr(start, '\n', available);
    std::size_t length = lf != nullptr ? static_cast<const char*>(lf) - start + 1 : available;
    *piece = std::string_view(start, length);
    piece_offset_ = base_ + static_cast<off_t>(begin_);
    begin_ += length;
    return true;
  }
  // File offset of the last piece returned, and just behind it.
  off_t piece_offset() const { return piece_offset_; }
  off_t position() const { return base_ + static_cast<off_t>(begin_); }
  // False when reading stopped on an error rather than at the end of the file.
  bool read_ok() const { return read_ok_; }

 private:
  static std::vector<char>& Buffer();
  void Fill();

  int fd_;
  off_t base_;  // file offset of buf_[0]
  std::size_t piece_max_;
  std::vector<char>& buf_;
  std::size_t begin_ = 0;  // next piece
  std::size_t end_ = 0;    // end of the data read
  bool eof_ = false;
  bool read_ok_ = true;
  off_t piece_offset_ = 0;
};

// ASCII case folding as my_stricmp does it, by table.
const std::array<unsigned char, 256>& FoldTable();

// True when the first field of |line| (up to TAB, CR, LF or NUL) equals
// |sku| without regard to case. |sku| holds none of those bytes.
bool FirstFieldIs(std::string_view line, std::string_view sku);

// The piece of a line that starts at |offset| as LineScanner gives it (at
// most |piece_max| bytes, through the first LF) into |buf|, which has room
// for |piece_max| + 1 bytes, NUL-terminated. Returns its length.
std::size_t ReadPieceAt(int fd, off_t offset, std::size_t piece_max, char* buf);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_LINE_SCANNER_H_
