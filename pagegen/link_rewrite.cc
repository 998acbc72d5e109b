#include "pagegen/link_rewrite.h"

namespace storegen {

int ExpandLinkKeyword(PageOutput* /*out*/, std::string_view /*markup*/,
                      const PageContext& /*ctx*/) {
  return 0;
}

int WriteLinkTag(PageOutput* out, std::string_view markup, const PageContext& /*ctx*/) {
  return WriteOutput(out, markup);
}

}  // namespace storegen
