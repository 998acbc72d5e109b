#include "pagegen/page_context.h"

#include "pagegen/page_file.h"

namespace storegen {

uint64_t g_page_dependent = 0;

int WriteOutputToStreams(PageOutput* out, const char* text, std::size_t length) {
  if (out == nullptr || length == 0) return 0;
  // The streams belong to this thread: no locking per piece.
  if (out->fp != nullptr) {
    if (out->file != nullptr && out->fp == out->file->fp()) {
      out->file->Add(text, length);
    } else {
      fwrite_unlocked(text, 1, length, out->fp);
    }
    if (out->capture != nullptr) out->capture->append(text, length);
  }
  if (out->cache.fp() != nullptr) fwrite_unlocked(text, 1, length, out->cache.fp());
  return 0;
}

}  // namespace storegen
