// Attribute form controls: one HTML form control per variant attribute of the
// current product (its "TILLBOXATTRIBUTES" value names attributes and their
// permitted values; labels, control types and value texts come from the
// attribute database), and the store's list of credit-card types.
#ifndef STOREGEN_PAGEGEN_FORM_CONTROLS_H_
#define STOREGEN_PAGEGEN_FORM_CONTROLS_H_

#include <cstdint>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Writes the controls of ctx.product's attributes (attribute database
// ctx.attr_db) in place of |marker|, the markup that holds
// "PAGEGEN_ATTRIBUTES" (the marker itself is not written).
// "TILLBOXATTRIBUTES" holds entries "number:value,value,..." separated by
// "|"; each entry gets the control of its attribute's type and then "<BR>".
// Nothing is written without a product, or when the value is missing, empty
// or does not start with a digit. Returns 0, or -1 when memory runs out.
// The controls of a TILLBOXATTRIBUTES value are made once per attribute
// database and kept for the next product with the same value.
int ProcessAttributes(PageOutput* out, std::string_view marker, const PageContext& ctx);
// Forgets the kept controls.
void ForgetKeptControls();

// Writes the credit-card type list of ctx.store_cfg in place of |marker|, the
// markup that holds "PAGEGEN_CARDTYPE"; the list is named by the marker's own
// "Name" attribute, else "CCType". Returns 0.
int ProcessCardType(PageOutput* out, std::string_view marker, const PageContext& ctx);

// The controls. Each writes nothing when attribute |attribute| has no label
// in |pool|; the label is written in front of the control and names it.
// |values| is a comma-separated list of value numbers (1-based positions in
// the attribute's value list); numbers without a value text are skipped.
//
// A list box of |size| rows (several choices when |multiple|); the first
// option written is selected.
void DisplayListBox(PageOutput* out, AttributePool* pool, int32_t attribute,
                    std::string_view values, int32_t size, bool multiple);
// Radio buttons (|type| 3, named by the label) or check boxes (any other
// type, each named by its value, so several can be sent at once); the first
// button written is checked.
void DisplayButtons(PageOutput* out, AttributePool* pool, int32_t attribute,
                    std::string_view values, int32_t type);
// A text area of 12 rows and 65 columns.
void DisplayTextArea(PageOutput* out, AttributePool* pool, int32_t attribute);
// A text entry field of size 15.
void DisplayEntryField(PageOutput* out, AttributePool* pool, int32_t attribute);

// Writes a one-row list named |name| ("" when null) with one option per
// ";"-separated type of the store's "CreditCardTypes". Returns 1 when it
// wrote the list, 0 (writing nothing) when the store has no card types.
int OutputCardtypeDropdown(PageOutput* out, const char* store_cfg, const char* name);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_FORM_CONTROLS_H_
