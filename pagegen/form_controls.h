// Attribute form controls: one HTML form control per variant attribute of the
// current product (its "TILLBOXATTRIBUTES" value, labels, types and values
// from the attribute database), and the store's list of credit-card types.
//
// Until the controls are in place both entry points write the marker markup
// unchanged.
#ifndef STOREGEN_PAGEGEN_FORM_CONTROLS_H_
#define STOREGEN_PAGEGEN_FORM_CONTROLS_H_

#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Writes the controls of ctx.product's attributes (attribute database
// ctx.attr_db) in place of |marker|, the markup that holds
// "PAGEGEN_ATTRIBUTES". Returns 0, or -1 when memory runs out; the parser
// ends the page with a non-zero result.
int ProcessAttributes(PageOutput* out, std::string_view marker, const PageContext& ctx);

// Writes the credit-card type list of ctx.store_cfg in place of |marker|, the
// markup that holds "PAGEGEN_CARDTYPE"; the list is named by the marker's own
// "Name" attribute, else "CCType". Returns 0.
int ProcessCardType(PageOutput* out, std::string_view marker, const PageContext& ctx);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_FORM_CONTROLS_H_
