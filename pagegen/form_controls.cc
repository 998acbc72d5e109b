#include "pagegen/form_controls.h"

namespace storegen {

int ProcessAttributes(PageOutput* out, std::string_view marker, const PageContext& /*ctx*/) {
  return WriteOutput(out, marker);
}

int ProcessCardType(PageOutput* out, std::string_view marker, const PageContext& /*ctx*/) {
  return WriteOutput(out, marker);
}

}  // namespace storegen
