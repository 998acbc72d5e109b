// Product and category tags: "%%PRODUCT.name%%" and "%%CATEGORY.name%%" (also
// written "%25%25PRODUCT.name%25%25", as they appear inside URL-encoded
// links) stand for an attribute of the page's current product or category.
#ifndef STOREGEN_PAGEGEN_TAG_VALUES_H_
#define STOREGEN_PAGEGEN_TAG_VALUES_H_

#include <string>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// The text that replaces the closed tag |tag| (both delimiters included):
// - a product tag with a current product: the attribute's value when it is
//   present, not empty and not "NA"; else, for GRAPHIC or THUMBNAIL, the
//   template set's default picture behind |image_prefix| (the tag and the
//   product's SKU are then entered in the error list with -19); else " ";
// - a category tag with a category connection and a current category: the
//   value, or the tag as it stands when the category or a usable value is
//   missing (the tag is entered in the error list with -18 and *warning set
//   to -18);
// - any other tag, or one whose product, category or connection is absent:
//   the tag as it stands.
// GRAPHIC and THUMBNAIL values come URL-escaped, except those that are full
// URLs ("http://", "https://" or "//" at the start), which stand as they are,
// with no path in front.
std::string ResolveTemplateTag(std::string_view tag, const PageContext& ctx,
                               std::string_view image_prefix, int* warning);

// What a tag names, found once for a tag that many pages show.
struct TagParts {
  explicit TagParts(std::string_view tag);
  bool product = false;      // a product tag
  bool picture = false;      // naming GRAPHIC or THUMBNAIL
  std::string product_name;  // the attribute a product tag names
  // Where the attribute stands in records of one layout of names
  // (PageContext::product_layout): found once for the products that share it.
  mutable uint64_t layout = 0;
  mutable int column = -1;  // -1: the layout has no such attribute
};

// Writes ResolveTemplateTag(tag, ...) to |out|, |parts| being the parts of
// |tag|: a product value that stands as it is is written without a copy.
void WriteTemplateTag(PageOutput* out, std::string_view tag, const TagParts& parts,
                      const PageContext& ctx, std::string_view image_prefix, int* warning);
// The same, appended to |text|.
void AppendTemplateTag(std::string* text, std::string_view tag, const TagParts& parts,
                       const PageContext& ctx, std::string_view image_prefix, int* warning);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TAG_VALUES_H_
