#include "pagegen/tag_values.h"

#include <cstring>
#include <string>

#include "cgisupport/config_hints.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/form_decode.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/html_page.h"
#include "pagegen/text_match.h"
#include "storedata/product_api.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

// Length of the tag prefix |word| ("PRODUCT.") behind either opener, or 0.
std::size_t PrefixLength(std::string_view tag, std::string_view word) {
  for (std::string_view opener : {std::string_view("%%"), std::string_view("%25%25")}) {
    if (tag.starts_with(opener) && StartsWithNoCase(tag.substr(opener.size()), word))
      return opener.size() + word.size();
  }
  return 0;
}

// The attribute name: behind the prefix, up to the next "%".
std::string AttributeName(std::string_view tag, std::size_t prefix_length) {
  std::string_view rest = tag.substr(prefix_length);
  return std::string(rest.substr(0, rest.find('%')));
}

bool IsUsable(const char* value) {
  return value != nullptr && *value != '\0' && !EqualsNoCase(value, "NA");
}

bool IsPicture(std::string_view name) {
  return EqualsNoCase(name, "GRAPHIC") || EqualsNoCase(name, "THUMBNAIL");
}

// A picture somewhere else (on a picture server, say), named by its whole
// URL: no path of the store's goes in front of it, and its escapes are its
// own.
bool IsFullUrl(std::string_view value) {
  return StartsWithNoCase(value, "http://") || StartsWithNoCase(value, "https://") ||
         value.starts_with("//");
}

// A picture's value as a link target: a file name of the store's is
// URL-escaped, a full URL written as it stands.
std::string PictureTarget(std::string_view value) {
  return IsFullUrl(value) ? std::string(value) : EscapeUrl(value);
}

std::string ProductSku(const PAPI_Pair* product) {
  const PAPI_Pair* sku = FindProdAttr(product, "SKU");
  if (sku == nullptr) sku = product;  // the record's first field names the product
  return sku->name != nullptr && sku->value != nullptr ? sku->value : "";
}

// The product's value of |name| when it is usable, else null.
const char* UsableValue(const PAPI_Pair* product, const std::string& name) {
  const PAPI_Pair* pair = FindProdAttr(product, name.c_str());
  return pair != nullptr && IsUsable(pair->value) ? pair->value : nullptr;
}

// UsableValue for the attribute of a product tag, found by where it stands
// when the product's records share the layout of names last seen.
const char* UsableValue(const PageContext& ctx, const TagParts& parts) {
  if (ctx.product_layout == 0) return UsableValue(ctx.product, parts.product_name);
  if (parts.layout != ctx.product_layout) {
    const PAPI_Pair* pair = FindProdAttr(ctx.product, parts.product_name.c_str());
    parts.column = pair != nullptr ? static_cast<int>(pair - ctx.product) : -1;
    parts.layout = ctx.product_layout;
  }
  if (parts.column < 0) return nullptr;
  const char* value = ctx.product[parts.column].value;
  return IsUsable(value) ? value : nullptr;
}

// A product tag that names no column of the product's record: said once
// per template and name, with the column whose name is closest.
[[gnu::noinline, gnu::cold]] void WarnUnknownColumn(std::string_view tag, const std::string& name,
                                                    const PAPI_Pair* product,
                                                    bool default_picture) {
  const std::string tmpl = CurrentTemplatePath();
  if (!FirstTime("column\t" + tmpl + "\t" + name)) return;
  std::string detail = std::string(tag) + " names no column of the product database";
  const char* closest = nullptr;
  std::size_t distance = 3;  // farther names are no help
  for (const PAPI_Pair* p = product; p->name != nullptr; ++p) {
    if (std::size_t d = NameDistance(p->name, name, distance); d < distance) {
      distance = d;
      closest = p->name;
    }
  }
  if (closest != nullptr) detail += std::string(" (is ") + closest + " meant?)";
  detail += default_picture ? "; the template set's default picture is used"
                            : "; a blank is written in its place";
  ReportWarning({AbsolutePathForMessage(tmpl), TextLine(tmpl.c_str(), tag)}, detail);
}

std::string ProductTag(std::string_view tag, const std::string& name, const PageContext& ctx,
                       std::string_view image_prefix) {
  const PAPI_Pair* pair = FindProdAttr(ctx.product, name.c_str());
  if (pair != nullptr && IsUsable(pair->value)) {
    return IsPicture(name) ? PictureTarget(pair->value) : std::string(pair->value);
  }
  const std::string* fallback = nullptr;
  if (ctx.set != nullptr && EqualsNoCase(name, "GRAPHIC")) {
    fallback = &ctx.set->default_product_graphic;
  } else if (ctx.set != nullptr && EqualsNoCase(name, "THUMBNAIL")) {
    fallback = &ctx.set->default_product_thumbnail;
  }
  const bool default_picture = fallback != nullptr && !fallback->empty();
  if (pair == nullptr) WarnUnknownColumn(tag, name, ctx.product, default_picture);
  if (!default_picture) return " ";
  ++g_page_dependent;  // the error list gets entries
  FileListAdd(&PageGenState.errlist, std::string(tag).c_str(), kDefaultPictureUsed);
  FileListAdd(&PageGenState.errlist, ProductSku(ctx.product).c_str(), kDefaultPictureUsed);
  // The prefix is a path or URL of the store's own; only the file name is
  // escaped.
  if (IsFullUrl(*fallback)) return *fallback;
  return std::string(image_prefix) + EscapeUrl(*fallback);
}

// The category's value of |name|; false when the category or the value is
// missing.
bool CategoryValue(const std::string& name, const PageContext& ctx, std::string* value) {
  if (pdbRetrieve == nullptr) return false;
  PAPI_Pair* record = pdbRetrieve(ctx.cat_db, kPapiKey, ctx.category, 1, ctx.cat_db_path,
                                  ctx.store_cfg, ctx.api_cfg, ctx.cart_dir, nullptr);
  if (record == nullptr) return false;
  const PAPI_Pair* pair = FindProdAttr(record, name.c_str());
  bool ok = pair != nullptr && IsUsable(pair->value);
  if (ok) *value = IsPicture(name) ? PictureTarget(pair->value) : std::string(pair->value);
  if (pdbRelease != nullptr) pdbRelease(ctx.cat_db, kPapiKey, "", record);
  return ok;
}

}  // namespace

TagParts::TagParts(std::string_view tag) {
  if (const std::size_t n = PrefixLength(tag, "PRODUCT."); n != 0) {
    product = true;
    product_name = AttributeName(tag, n);
    picture = IsPicture(product_name);
  }
}

namespace {

// ResolveTemplateTag's text given to |sink|: a product value that stands as
// it is without a copy.
template <typename Sink>
void EmitTemplateTag(Sink sink, std::string_view tag, const TagParts& parts, const PageContext& ctx,
                     std::string_view image_prefix, int* warning) {
  if (parts.product && ctx.product != nullptr) {
    const char* value = UsableValue(ctx, parts);
    if (value == nullptr) {
      sink(ProductTag(tag, parts.product_name, ctx, image_prefix));
    } else if (!parts.picture || IsFullUrl(value)) {
      sink(std::string_view(value));
    } else {
      // Taken by the sink before the next tag needs it.
      static auto* escaped = new std::string();  // lives until the process ends
      escaped->clear();
      AppendEscapedUrl(escaped, value);
      sink(std::string_view(*escaped));
    }
    return;
  }
  sink(ResolveTemplateTag(tag, ctx, image_prefix, warning));
}

}  // namespace

void WriteTemplateTag(PageOutput* out, std::string_view tag, const TagParts& parts,
                      const PageContext& ctx, std::string_view image_prefix, int* warning) {
  EmitTemplateTag([out](std::string_view text) { WriteOutput(out, text); }, tag, parts, ctx,
                  image_prefix, warning);
}

void AppendTemplateTag(std::string* text, std::string_view tag, const TagParts& parts,
                       const PageContext& ctx, std::string_view image_prefix, int* warning) {
  EmitTemplateTag([text](std::string_view value) { text->append(value); }, tag, parts, ctx,
                  image_prefix, warning);
}

std::string ResolveTemplateTag(std::string_view tag, const PageContext& ctx,
                               std::string_view image_prefix, int* warning) {
  if (std::size_t n = PrefixLength(tag, "PRODUCT."); n != 0 && ctx.product != nullptr)
    return ProductTag(tag, AttributeName(tag, n), ctx, image_prefix);

  if (std::size_t n = PrefixLength(tag, "CATEGORY.");
      n != 0 && ctx.cat_db != nullptr && ctx.category != nullptr && *ctx.category != '\0') {
    std::string value;
    if (CategoryValue(AttributeName(tag, n), ctx, &value)) return value;
    ++g_page_dependent;  // the error list gets an entry
    FileListAdd(&PageGenState.errlist, std::string(tag).c_str(), kUnresolvedCategoryTag);
    *warning = kUnresolvedCategoryTag;
  }
  return std::string(tag);
}

}  // namespace storegen
