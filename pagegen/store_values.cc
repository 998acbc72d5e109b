#include "pagegen/store_values.h"

#include <string>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/str_util.h"
#include "pagegen/cart_links.h"
#include "pagegen/text_match.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr int kValueSize = 65536;

// A store image in use on a page is copied to the secure server with the
// secure pages: registers its name relative to the store's directory (and
// adds it to |*names| when that is not null).
void RegisterStoreImage(std::string_view value, const PageContext& ctx,
                        std::vector<std::string>* names) {
  if (ctx.set == nullptr || value.empty()) return;
  std::string_view page_path = ctx.page_path;
  if (!page_path.empty() && value.starts_with(page_path)) {
    value.remove_prefix(page_path.size());
  } else if (IsDirSlash(value.front()) || value.find(':') < value.find('/')) {
    return;  // somewhere else entirely
  }
  if (value.empty()) return;
  PG_TpltAddSecureFile(ctx.set, std::string(value).c_str());
  if (names != nullptr) names->emplace_back(value);
}

std::string BodyTag(const PageContext& ctx, std::string_view image_prefix,
                    std::vector<std::string>* names) {
  static constexpr struct {
    const char* key;
    const char* attribute;
  } kAttributes[] = {
      {"PageGenBgColor", "BGCOLOR"},  {"PageGenLinkColor", "LINK"},
      {"PageGenVLinkColor", "VLINK"}, {"PageGenALinkColor", "ALINK"},
      {"PageGenTextColor", "TEXT"},   {"PageGenBgImage", "BACKGROUND"},
  };
  std::string tag = "<BODY ";
  for (const auto& a : kAttributes) {
    std::string value = StoreConfigValue(ctx.store_cfg, a.key);
    if (value.empty()) continue;
    if (std::string_view(a.attribute) == "BACKGROUND") {
      RegisterStoreImage(value, ctx, names);
      value = StoreImagePath(value, ctx.page_path, image_prefix);
    }
    tag += a.attribute;
    tag += "=\"";
    tag += value;
    tag += "\" ";
  }
  tag += '>';
  return tag;
}

std::string StoreLogo(const PageContext& ctx, std::string_view image_prefix,
                      std::vector<std::string>* names) {
  std::string value = StoreConfigValue(ctx.store_cfg, "StoreLogo");
  if (value.empty()) return "";  // no logo: no broken image either
  RegisterStoreImage(value, ctx, names);
  return "<IMG SRC=\"" + StoreImagePath(value, ctx.page_path, image_prefix) + "\">";
}

}  // namespace

std::string StoreConfigValue(const char* store_cfg, const char* key) {
  return ConfigValue(store_cfg, key, kValueSize);
}

bool SetStoreConfigItem(const char* store_cfg, const char* key, const std::string& value) {
  ConfigItemList* list = CIL_CreateList();
  if (list == nullptr) return false;
  bool ok = CIL_AddItem(list, key, value.c_str()) != 0;
  if (ok) SetConfigItems(store_cfg, list);
  CIL_FreeList(list);
  return ok;
}

std::string StoreImagePath(std::string_view value, std::string_view page_path,
                           std::string_view prefix) {
  bool has_scheme = value.find(':') < value.find('/');
  bool as_is = (!value.empty() && IsDirSlash(value.front())) || has_scheme ||
               (!page_path.empty() && value.starts_with(page_path)) ||
               (!prefix.empty() && value.starts_with(prefix));
  if (as_is) return std::string(value);
  return std::string(prefix) + std::string(value);
}

namespace {

constexpr struct {
  std::string_view marker;
  const char* key;  // null: composed in StoreValue
} kStoreValueMarkers[] = {
    {"PAGEGEN_STORENAME", "ShopName"},       {"PAGEGEN_BODYTAG", nullptr},
    {"PAGEGEN_STORELOGO", nullptr},          {"PAGEGEN_STOREPHONE", "StorePhone"},
    {"PAGEGEN_STOREFAX", "StoreFax"},        {"PAGEGEN_STOREADDR1", "StoreAddress1"},
    {"PAGEGEN_STOREADDR2", "StoreAddress2"}, {"PAGEGEN_STOREEMAIL", "StoreEmail"},
    {"PAGEGEN_CURRENCYSYMBOL", "Currency"},  {"PAGEGEN_STOREWELCOME", "StoreWelcome"},
};

}  // namespace

int FindStoreValueMarker(const MarkerFinder& markers) {
  if (!markers.Any()) return -1;
  for (std::size_t i = 0; i < std::size(kStoreValueMarkers); ++i) {
    if (markers.Has(kStoreValueMarkers[i].marker)) return static_cast<int>(i);
  }
  return -1;
}

std::string StoreValue(int marker, const PageContext& ctx, std::string_view image_prefix,
                       std::vector<std::string>* secure_files) {
  if (marker < 0 || static_cast<std::size_t>(marker) >= std::size(kStoreValueMarkers)) return "";
  const auto& m = kStoreValueMarkers[marker];
  const std::string_view name = m.marker;
  std::string value;
  if (name == "PAGEGEN_BODYTAG") {
    value = BodyTag(ctx, image_prefix, secure_files);
  } else if (name == "PAGEGEN_STORELOGO") {
    value = StoreLogo(ctx, image_prefix, secure_files);
  } else {
    value = StoreConfigValue(ctx.store_cfg, m.key);
    if (name == "PAGEGEN_CURRENCYSYMBOL" && value.empty()) value = "$";
    if (name == "PAGEGEN_STOREWELCOME") unmaskSpecialChars(value.data());
  }
  return value;
}

}  // namespace storegen
