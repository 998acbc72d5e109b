#include "storedata/line_scanner.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>

namespace storegen {
namespace {

// Single lookups read the file in large blocks.
constexpr std::size_t kScanBlockSize = 256 * 1024;

}  // namespace

std::vector<char>& LineScanner::Buffer() {
  static auto* buffer = new std::vector<char>(kScanBlockSize);
  return *buffer;
}

void LineScanner::Fill() {
  std::memmove(buf_.data(), buf_.data() + begin_, end_ - begin_);
  base_ += static_cast<off_t>(begin_);
  end_ -= begin_;
  begin_ = 0;
  while (end_ < buf_.size()) {
    ssize_t n =
        pread(fd_, buf_.data() + end_, buf_.size() - end_, base_ + static_cast<off_t>(end_));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      eof_ = true;
      read_ok_ = n == 0;
      return;
    }
    end_ += static_cast<std::size_t>(n);
  }
}

const std::array<unsigned char, 256>& FoldTable() {
  static const std::array<unsigned char, 256> table = [] {
    std::array<unsigned char, 256> t{};
    for (int c = 0; c < 256; ++c)
      t[c] = static_cast<unsigned char>(std::tolower(c));
    return t;
  }();
  return table;
}

bool FirstFieldIs(std::string_view line, std::string_view sku) {
  if (line.size() < sku.size()) return false;
  const auto& fold = FoldTable();
  for (std::size_t i = 0; i < sku.size(); ++i) {
    if (fold[static_cast<unsigned char>(line[i])] != fold[static_cast<unsigned char>(sku[i])])
      return false;
  }
  if (line.size() == sku.size()) return true;
  char after = line[sku.size()];
  return after == '\t' || after == '\r' || after == '\n' || after == '\0';
}

std::size_t ReadPieceAt(int fd, off_t offset, std::size_t piece_max, char* buf) {
  std::size_t done = 0;
  while (done < piece_max) {
    ssize_t n = pread(fd, buf + done, piece_max - done, offset + static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    const void* lf = std::memchr(buf + done, '\n', static_cast<std::size_t>(n));
    done += static_cast<std::size_t>(n);
    if (lf != nullptr) {
      done = static_cast<std::size_t>(static_cast<const char*>(lf) - buf) + 1;
      break;
    }
  }
  buf[done] = '\0';
  return done;
}

}  // namespace storegen
