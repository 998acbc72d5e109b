#include "pagegen/page_file.h"

#include <cerrno>

#include "cgisupport/config_file.h"
#include "pagegen/filelist/file_list.h"

namespace storegen {
namespace {

// What a page's text starts with: most pages are a few kilobytes.
constexpr std::size_t kInitialCapacity = 16 << 10;

// Runs |attempt| to create a file at |path|, and once more after making its
// directory when that is missing: the directory a run made may have been
// removed meanwhile.
template <typename Attempt>
bool InDirectory(const std::string& path, Attempt attempt) {
  return attempt() || (errno == ENOENT && EnsurePGPDir(path.c_str()) == 0 && attempt());
}

}  // namespace

bool PageFile::Open(std::string path) {
  Abandon();
  cookie_io_functions_t io{};
  io.write = &PageFile::Write;
  fp_ = fopencookie(this, "w", io);
  if (fp_ == nullptr) return false;
  path_ = std::move(path);
  dropped_ = failed_ = false;
  text_.clear();
  text_.reserve(kInitialCapacity);
  return true;
}

ssize_t PageFile::Write(void* cookie, const char* data, std::size_t n) {
  return static_cast<PageFile*>(cookie)->Append(data, n) ? static_cast<ssize_t>(n) : -1;
}

bool PageFile::Append(const char* data, std::size_t n) {
  if (dropped_) return false;
  if (spill_.fp() == nullptr && text_.size() + n > kMaxInMemory) {
    if (!InDirectory(path_, [this] { return spill_.Open(path_); })) return false;
    if (!spill_.Write(text_.data(), text_.size())) return false;
    std::string().swap(text_);
  }
  if (spill_.fp() != nullptr) return spill_.Write(data, n);
  text_.append(data, n);
  return true;
}

bool PageFile::Commit() {
  if (fp_ == nullptr) return false;
  const bool written = std::fflush(fp_) == 0 && std::ferror(fp_) == 0 && !failed_;
  const int err = errno;
  std::fclose(fp_);
  fp_ = nullptr;
  if (!written) {
    spill_.Abandon();
    errno = err;
    return false;
  }
  if (spill_.fp() != nullptr) return spill_.Commit(AtomicFile::Sync::kRename, RecordNewPage);
  return InDirectory(path_, [this] { return WriteWholeFile(path_, text_, RecordNewPage); });
}

void PageFile::Abandon() {
  if (fp_ != nullptr) {
    dropped_ = true;  // what the stream still holds goes nowhere
    std::fclose(fp_);
    fp_ = nullptr;
  }
  spill_.Abandon();
  text_.clear();
}

}  // namespace storegen
