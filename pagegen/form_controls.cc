#include "pagegen/form_controls.h"

#include <sys/stat.h>

#include <cctype>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>

#include "cgisupport/config_file.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/link_rewrite.h"
#include "storedata/attribute_db.h"
#include "storedata/product_api.h"

namespace storegen {
namespace {

constexpr int kCardTypesSize = 2048;

struct FreeDeleter {
  void operator()(char* p) const { std::free(p); }
};
using OwnedText = std::unique_ptr<char, FreeDeleter>;

// The attribute's label, or null when it has none.
OwnedText Label(AttributePool* pool, int32_t attribute) {
  OwnedText label(AD_GetAttributeLabel(pool, attribute));
  if (label != nullptr && *label == '\0') label.reset();
  return label;
}

// An attribute of the product's TILLBOXATTRIBUTES that gets no control:
// said once per attribute, or once for all when there is no attribute
// database.
[[gnu::noinline, gnu::cold]] void WarnNoControl(const PageContext& ctx, int32_t attribute,
                                                int32_t type) {
  const std::string db = PageGenState.szAttrDb;
  struct stat st;
  const bool missing = db.empty() || stat(db.c_str(), &st) != 0;
  if (!FirstTime(missing ? std::string("attributes") : "attribute\t" + std::to_string(attribute)))
    return;
  const PAPI_Pair* sku = FindProdAttr(ctx.product, "SKU");
  std::string detail = "product \"" +
                       std::string(sku != nullptr && sku->value != nullptr ? sku->value : "") +
                       "\": TILLBOXATTRIBUTES names attribute " + std::to_string(attribute);
  if (db.empty()) {
    detail +=
        ", but there is no attribute database (it is named after ProductDatabase); no "
        "product gets attribute controls";
  } else if (missing) {
    detail += ", but the attribute database does not exist; no product gets attribute controls";
  } else if (OwnedText label = Label(ctx.attr_db, attribute); label == nullptr) {
    detail += ", which the attribute database does not hold; it gets no control";
  } else {
    detail += " (" + std::string(label.get()) + ") of type " + std::to_string(type) +
              ", which is no form control (types 1 to 7); it gets no control";
  }
  ReportWarning({db.empty() ? std::string() : AbsolutePathForMessage(db)}, detail);
}

int32_t Number(std::string_view text) {
  return std::atoi(std::string(text).c_str());
}

// Calls |fn| with the text of every value of |values| that the attribute
// has, in list order.
template <typename Fn>
void ForEachValue(AttributePool* pool, int32_t attribute, std::string_view values, Fn fn) {
  while (!values.empty()) {
    std::size_t comma = values.find(',');
    const char* value = AD_GetAttributeValuePTR(pool, attribute, Number(values.substr(0, comma)));
    if (value != nullptr && *value != '\0') fn(std::string_view(value));
    values = comma == std::string_view::npos ? std::string_view() : values.substr(comma + 1);
  }
}

// Appends every piece of |pieces| to |out|: one control's HTML is composed
// in one string, without a temporary string per piece.
void Append(std::string* out, std::initializer_list<std::string_view> pieces) {
  for (std::string_view piece : pieces)
    out->append(piece);
}

void AppendListBox(std::string* html, AttributePool* pool, int32_t attribute,
                   std::string_view values, int32_t size, bool multiple) {
  OwnedText label = Label(pool, attribute);
  if (label == nullptr) return;
  Append(html, {label.get(), "<BR>\n<SELECT SIZE=\"", std::to_string(size), "\" NAME=\"",
                label.get(), "\"", multiple ? " MULTIPLE" : "", ">\n"});
  bool first = true;
  ForEachValue(pool, attribute, values, [&](std::string_view v) {
    Append(html, {"<OPTION VALUE=\"", v, "\" ", first ? "SELECTED" : "", ">", v, "</OPTION>\n"});
    first = false;
  });
  *html += "</SELECT>\n";
}

void AppendButtons(std::string* html, AttributePool* pool, int32_t attribute,
                   std::string_view values, int32_t type) {
  OwnedText label = Label(pool, attribute);
  if (label == nullptr) return;
  const bool radio = type == 3;
  Append(html, {label.get(), "<BR>\n"});
  bool first = true;
  ForEachValue(pool, attribute, values, [&](std::string_view v) {
    Append(html, {"<INPUT TYPE=\"", radio ? "RADIO" : "CHECKBOX", "\" NAME=\"",
                  radio ? std::string_view(label.get()) : v, "\" "});
    if (radio) Append(html, {"VALUE=\"", v, "\" "});
    Append(html, {first ? "CHECKED" : "", ">", v, "<BR>\n"});
    first = false;
  });
}

void AppendTextArea(std::string* html, AttributePool* pool, int32_t attribute) {
  OwnedText label = Label(pool, attribute);
  if (label == nullptr) return;
  Append(html, {label.get(), "<BR><TEXTAREA ROWS=\"12\" COLS=\"65\" NAME=\"", label.get(),
                "\"></TEXTAREA>\n"});
}

void AppendEntryField(std::string* html, AttributePool* pool, int32_t attribute) {
  OwnedText label = Label(pool, attribute);
  if (label == nullptr) return;
  Append(html, {label.get(), "<BR><INPUT TYPE=\"TEXT\" SIZE=\"15\" NAME=\"", label.get(), "\">\n"});
}

// The controls of the TILLBOXATTRIBUTES value |list|.
void AppendControls(std::string* html, std::string_view list, const PageContext& ctx) {
  while (!list.empty()) {
    std::size_t bar = list.find('|');
    std::string_view entry = list.substr(0, bar);
    list = bar == std::string_view::npos ? std::string_view() : list.substr(bar + 1);
    if (entry.empty()) continue;
    std::size_t colon = entry.find(':');
    const int32_t attribute = Number(entry.substr(0, colon));
    std::string_view values =
        colon == std::string_view::npos ? std::string_view() : entry.substr(colon + 1);
    const int32_t type = AD_GetAttributeType(ctx.attr_db, attribute);
    switch (type) {
      case 1:
        AppendListBox(html, ctx.attr_db, attribute, values, 1, false);
        break;
      case 2:
        AppendTextArea(html, ctx.attr_db, attribute);
        break;
      case 3:
      case 4:
        AppendButtons(html, ctx.attr_db, attribute, values, type);
        break;
      case 5:
        AppendEntryField(html, ctx.attr_db, attribute);
        break;
      case 6:
        AppendListBox(html, ctx.attr_db, attribute, values, 5, false);
        break;
      case 7:
        AppendListBox(html, ctx.attr_db, attribute, values, 5, true);
        break;
      default:
        WarnNoControl(ctx, attribute, type);
        break;
    }
    *html += "<BR>";
  }
}

// The controls of the TILLBOXATTRIBUTES values met so far, for one
// attribute database: products mostly share a few of them. A warning about
// a value is given when its controls are first made, as it would be once
// anyway.
struct KeptControls {
  uint64_t pool = 0;  // AD_PoolContentsId
  std::unordered_map<std::string, std::string> by_value;
};

KeptControls& Kept() {
  static auto* kept = new KeptControls();  // lives until the process ends
  return *kept;
}

constexpr std::size_t kMaxKeptControls = 1024;

}  // namespace

void DisplayListBox(PageOutput* out, AttributePool* pool, int32_t attribute,
                    std::string_view values, int32_t size, bool multiple) {
  std::string html;
  AppendListBox(&html, pool, attribute, values, size, multiple);
  WriteOutput(out, html);
}

void DisplayButtons(PageOutput* out, AttributePool* pool, int32_t attribute,
                    std::string_view values, int32_t type) {
  std::string html;
  AppendButtons(&html, pool, attribute, values, type);
  WriteOutput(out, html);
}

void DisplayTextArea(PageOutput* out, AttributePool* pool, int32_t attribute) {
  std::string html;
  AppendTextArea(&html, pool, attribute);
  WriteOutput(out, html);
}

void DisplayEntryField(PageOutput* out, AttributePool* pool, int32_t attribute) {
  std::string html;
  AppendEntryField(&html, pool, attribute);
  WriteOutput(out, html);
}

int ProcessAttributes(PageOutput* out, std::string_view /*marker*/, const PageContext& ctx) {
  const PAPI_Pair* pair = FindProdAttr(ctx.product, "TILLBOXATTRIBUTES");
  if (pair == nullptr || pair->value == nullptr ||
      !std::isdigit(static_cast<unsigned char>(pair->value[0]))) {
    return 0;
  }
  try {
    KeptControls& kept = Kept();
    const uint64_t pool = AD_PoolContentsId(ctx.attr_db);
    if (kept.pool != pool) {
      kept.by_value.clear();
      kept.pool = pool;
    }
    const std::string value = pair->value;
    if (auto it = kept.by_value.find(value); it != kept.by_value.end()) {
      WriteOutput(out, it->second);
      return 0;
    }
    std::string html;
    AppendControls(&html, value, ctx);
    WriteOutput(out, html);
    if (pool != 0 && kept.by_value.size() < kMaxKeptControls)
      kept.by_value.emplace(value, std::move(html));
  } catch (const std::bad_alloc&) {
    ReportOutOfMemory();
    return kOutOfMemory;
  }
  return 0;
}

void ForgetKeptControls() {
  Kept() = KeptControls();
}

int OutputCardtypeDropdown(PageOutput* out, const char* store_cfg, const char* name) {
  char types[kCardTypesSize] = "";
  if (GetConfigItem(store_cfg, "CreditCardTypes", types, sizeof types, 0) != 1) return 0;
  std::string html =
      "<SELECT SIZE=\"1\" NAME=\"" + std::string(name != nullptr ? name : "") + "\">\n";
  std::string_view list = types;
  while (!list.empty()) {
    std::size_t semi = list.find(';');
    std::string type(list.substr(0, semi));
    list = semi == std::string_view::npos ? std::string_view() : list.substr(semi + 1);
    if (!type.empty()) html += "<OPTION VALUE=\"" + type + "\">" + type + "\n";
  }
  html += "</SELECT>\n";
  WriteOutput(out, html);
  return 1;
}

int ProcessCardType(PageOutput* out, std::string_view marker, const PageContext& ctx) {
  std::string name;
  if (!MarkerAttribute(marker, "Name", &name)) name = "CCType";
  OutputCardtypeDropdown(out, ctx.store_cfg, name.c_str());
  return 0;
}

}  // namespace storegen
