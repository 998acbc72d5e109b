#include "pagegen/page_context.h"

namespace storegen {

uint64_t g_page_dependent = 0;

int WriteOutput(PageOutput* out, const char* text, std::size_t length) {
  if (out == nullptr || length == 0) return 0;
  // The streams belong to this thread: no locking per piece.
  if (out->fp != nullptr) {
    fwrite_unlocked(text, 1, length, out->fp);
    if (out->capture != nullptr) out->capture->append(text, length);
  }
  if (out->cache.fp() != nullptr) fwrite_unlocked(text, 1, length, out->cache.fp());
  return 0;
}

}  // namespace storegen
