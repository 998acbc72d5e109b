#include "pagegen/store_links.h"

namespace storegen {

int DoStoreExitURL(PageOutput* out, std::string_view markup, std::size_t /*keyword_pos*/,
                   const char* /*store_cfg*/) {
  WriteOutput(out, markup);
  return 1;
}

int DoStoreEnterURL(PageOutput* out, std::string_view markup, std::size_t /*keyword_pos*/,
                    const char* /*store_cfg*/, const char* /*page_path*/) {
  WriteOutput(out, markup);
  return 1;
}

}  // namespace storegen
