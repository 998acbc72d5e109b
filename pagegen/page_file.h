// The file of a static page while it is written. The page is kept in memory
// and written in one step when it is complete: under a temporary name beside
// its file, renamed into place, so that a reader finds the old page or the
// complete new one and a page cut short is never written at all. A page that
// did not exist is named in the run's list of files before it appears. A
// page that grows past a few megabytes (a long list without paging) goes to
// its temporary file as it is written, so that memory stays bounded.
#ifndef STOREGEN_PAGEGEN_PAGE_FILE_H_
#define STOREGEN_PAGEGEN_PAGE_FILE_H_

#include <cstdio>
#include <string>

#include "cgisupport/atomic_file.h"

namespace storegen {

class PageFile {
 public:
  PageFile() = default;
  ~PageFile() { Abandon(); }
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  // Opens the page's stream for the file |path|; nothing is created yet.
  // False when the stream cannot be made.
  bool Open(std::string path);
  // The page's stream; null before Open and after Commit or Abandon.
  FILE* fp() const { return fp_; }
  // Adds |n| bytes to the page as a write to its stream would, without
  // going through the stream's buffer; the stream must have nothing
  // buffered. A failure makes Commit fail.
  void Add(const char* data, std::size_t n) {
    if (text_.size() + n <= kMaxInMemory && spill_.fp() == nullptr && !dropped_) {
      text_.append(data, n);
    } else if (!Append(data, n)) {
      failed_ = true;
    }
  }
  // Writes the page to its file (WriteWholeFile; a directory removed since
  // the run made it is made again). False when the page could not be
  // written or named in the run's list, with errno kept; an older file then
  // stays as it was.
  bool Commit();
  // Drops the page: nothing is written, an older file stays as it was.
  void Abandon();

 private:
  // Pages up to this size are kept in memory until they are complete.
  static constexpr std::size_t kMaxInMemory = 4 << 20;

  static ssize_t Write(void* cookie, const char* data, std::size_t n);
  bool Append(const char* data, std::size_t n);

  FILE* fp_ = nullptr;
  std::string path_;
  bool dropped_ = false;  // Abandon: the stream's last output is not kept
  bool failed_ = false;   // an Add failed
  std::string text_;      // the page so far, while it is kept in memory
  AtomicFile spill_;      // the page's temporary file, once it has grown too long
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_PAGE_FILE_H_
