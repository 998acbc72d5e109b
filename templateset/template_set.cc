#include "templateset/template_set.h"

#include <strings.h>
#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "cgisupport/config_item_list.h"
#include "cgisupport/copy_truncated.h"

namespace storegen {
namespace {

// The key word of each kind, index kind - 1; also the key of its entries.
constexpr const char* kKindWords[] = {"ProductPage", "SitePage",           "ShopHomePage",
                                      "SearchPage",  "DefaultProductPage", "TillboxPage",
                                      "SecureFile"};

bool KindInRange(int kind) {
  return kind >= kKindProductPage && kind <= kKindSecureFile;
}

const TemplateList* ListOfKind(const TemplateSet* set, int kind) {
  if (set == nullptr) return nullptr;
  switch (kind) {
    case kKindProductPage:
      return &set->product_pages;
    case kKindSitePage:
      return &set->site_pages;
    case kKindShopHomePage:
      return &set->shop_home_pages;
    case kKindSearchPage:
      return &set->search_page;
    case kKindDefaultProductPage:
      return &set->default_product_page;
    case kKindCartPage:
      return &set->cart_pages;
    case kKindSecureFile:
      return &set->secure_files;
    default:
      return nullptr;
  }
}

bool StartsWithNoCase(std::string_view text, std::string_view word) {
  return text.size() >= word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

// Decimal value of the leading digits of |text| (atoi's rules: blanks, then
// a sign), clamped to the int range; 0 when there are none.
int LeadingInt(const char* text) {
  if (text == nullptr) return 0;
  long long v = std::strtoll(text, nullptr, 10);
  if (v > INT_MAX) return INT_MAX;
  if (v < INT_MIN) return INT_MIN;
  return static_cast<int>(v);
}

// Splits an entry value at ';' into at most four tokens, runs of ';' counting
// as one: display name, template file, output file, flag (its first
// character only).
TemplateNode ParseEntryValue(std::string_view value) {
  TemplateNode node;
  std::string* fields[] = {&node.display_name, &node.template_file, &node.output_file};
  std::size_t pos = 0;
  for (int field = 0; field < 4; ++field) {
    while (pos < value.size() && value[pos] == ';')
      ++pos;
    if (pos >= value.size()) break;
    std::size_t end = value.find(';', pos);
    if (end == std::string_view::npos) end = value.size();
    std::string_view token = value.substr(pos, end - pos);
    if (field < 3) {
      fields[field]->assign(token);
    } else {
      node.flag = token[0];
    }
    pos = end;
  }
  return node;
}

void AddTpltListNode(TemplateList& list, std::string_view value) {
  list.push_back(ParseEntryValue(value));
}

// The first entry of |kind| whose display name is present and exactly
// |display_name|; null when none or the kind is out of range.
const TemplateNode* FindTemplateNode(const TemplateSet* set, const char* display_name, int kind) {
  const TemplateList* list = ListOfKind(set, kind);
  if (list == nullptr || display_name == nullptr) return nullptr;
  for (const TemplateNode& node : *list) {
    if (!node.display_name.empty() && node.display_name == display_name) return &node;
  }
  return nullptr;
}

// Copies |text| into a caller's buffer: cut, terminated, last byte 0.
void CopyOut(char* buf, int size, std::string_view text) {
  if (buf == nullptr || size <= 0) return;
  CopyTruncated(buf, static_cast<std::size_t>(size), text);
  buf[size - 1] = '\0';
}

void ApplyKey(TemplateSet& set, const char* name, const char* value) {
  if (name == nullptr || value == nullptr) return;
  struct ExactKey {
    const char* key;
    std::string TemplateSet::*field;
  };
  static constexpr ExactKey kExact[] = {
      {"CreatorName", &TemplateSet::creator_name},
      {"Copyright", &TemplateSet::copyright},
      {"StyleName", &TemplateSet::style_name},
      {"InfoPage", &TemplateSet::info_page},
      {"CopyExcludesDirs", &TemplateSet::copy_excludes_dirs},
      {"DefaultProductGraphic", &TemplateSet::default_product_graphic},
      {"DefaultProductThumbnail", &TemplateSet::default_product_thumbnail},
  };
  for (const ExactKey& k : kExact) {
    if (strcasecmp(name, k.key) == 0) {
      set.*k.field = value;
      return;
    }
  }
  if (strcasecmp(name, "MaxProdPerPage") == 0) {
    int n = LeadingInt(value);
    set.max_prod_per_page = n < 0 ? 0 : n;
    return;
  }
  // Single-entry lists: the last line wins.
  if (strcasecmp(name, "DefaultProductPage") == 0) {
    set.default_product_page.clear();
    AddTpltListNode(set.default_product_page, value);
    return;
  }
  if (strcasecmp(name, "SearchPage") == 0) {
    set.search_page.clear();
    AddTpltListNode(set.search_page, value);
    return;
  }
  // Prefix keys accumulate in file order; a number after the word plays no
  // part in the order.
  struct PrefixKey {
    const char* word;
    TemplateList TemplateSet::*list;
  };
  static constexpr PrefixKey kPrefix[] = {
      {"ProductPage", &TemplateSet::product_pages},    {"SitePage", &TemplateSet::site_pages},
      {"ShopHomePage", &TemplateSet::shop_home_pages}, {"TillboxPage", &TemplateSet::cart_pages},
      {"SecureFile", &TemplateSet::secure_files},
  };
  for (const PrefixKey& k : kPrefix) {
    if (StartsWithNoCase(name, k.word)) {
      AddTpltListNode(set.*k.list, value);
      return;
    }
  }
}

// The display-name cursor: the list walked, the next position, and the set
// it belongs to (so that releasing the set also ends the walk).
struct DisplayNameCursor {
  const TemplateSet* set = nullptr;
  const TemplateList* list = nullptr;
  std::size_t next = 0;
};
DisplayNameCursor pNode;

}  // namespace

TemplateSet* PG_InitTemplateSet(const char* path) {
  if (path == nullptr || *path == '\0') return nullptr;
  struct stat st;
  if (stat(path, &st) != 0 || S_ISDIR(st.st_mode) || st.st_size == 0) return nullptr;
  std::unique_ptr<ConfigItemList, void (*)(ConfigItemList*)> list(CIL_CreateListFromFile(path),
                                                                  &CIL_FreeList);
  if (!list || CIL_IsListEmpty(list.get())) return nullptr;

  auto set = std::make_unique<TemplateSet>();
  set->file_name = path;
  // Save the list cursor so that a walk over another list survives this one.
  CIL_PushGetNextNVP();
  char* name = nullptr;
  char* value = nullptr;
  for (int more = CIL_GetNextNVP(list.get(), &name, &value); more == 1;
       more = CIL_GetNextNVP(nullptr, &name, &value)) {
    ApplyKey(*set, name, value);
  }
  CIL_PopGetNextNVP();
  return set.release();
}

void PG_ShutdownTemplateSet(TemplateSet* set) {
  if (set == nullptr) return;
  if (pNode.set == set) pNode = DisplayNameCursor{};
  delete set;
}

int PG_TpltGetDisplayName(const TemplateSet* set, const char* reference, char* buf, int size,
                          int kind) {
  const TemplateList* list = ListOfKind(set, kind);
  if (list == nullptr) return 0;
  if (reference == nullptr) reference = "";
  int n = LeadingInt(reference);
  std::string_view word = kKindWords[kind - 1];
  if (n == 0 && StartsWithNoCase(reference, word)) n = LeadingInt(reference + word.size());
  // References are 1-based; 0, negatives and words select the first entry.
  std::size_t index = n > 1 ? static_cast<std::size_t>(n - 1) : 0;
  if (index >= list->size()) return 0;
  CopyOut(buf, size, (*list)[index].display_name);
  return 1;
}

int PG_TpltGetNextDisplayName(const TemplateSet* set, char* buf, int size, int kind) {
  if (set != nullptr) {
    const TemplateList* list = KindInRange(kind) ? ListOfKind(set, kind) : nullptr;
    pNode = DisplayNameCursor{list != nullptr ? set : nullptr, list, 0};
  }
  if (pNode.list == nullptr || pNode.next >= pNode.list->size()) return 0;
  CopyOut(buf, size, (*pNode.list)[pNode.next].display_name);
  ++pNode.next;
  return 1;
}

int PG_TpltGetTemplateFile(const TemplateSet* set, const char* display_name, char* buf, int size,
                           int kind) {
  const TemplateNode* node = FindTemplateNode(set, display_name, kind);
  if (node == nullptr) return 0;
  CopyOut(buf, size, node->template_file);
  return 1;
}

int PG_TpltGetOutputFile(const TemplateSet* set, const char* display_name, char* buf, int size,
                         int kind) {
  const TemplateNode* node = FindTemplateNode(set, display_name, kind);
  if (node == nullptr) return 0;
  CopyOut(buf, size, node->output_file);
  return 1;
}

int PG_TpltIsSecureFile(const TemplateSet* set, const char* display_name, int kind) {
  const TemplateNode* node = FindTemplateNode(set, display_name, kind);
  return node != nullptr && (node->flag == 's' || node->flag == 'S') ? 1 : 0;
}

int PG_TpltAddSecureFile(TemplateSet* set, const char* file_name) {
  if (set == nullptr || file_name == nullptr) return 1;
  if (FindTemplateNode(set, file_name, kKindSecureFile) == nullptr) {
    AddTpltListNode(set->secure_files, file_name);
  }
  return 1;
}

int PG_TpltAreThereProdPages(const TemplateSet* set, const char* reference) {
  auto name = std::make_unique<char[]>(2048);
  if (PG_TpltGetDisplayName(set, reference, name.get(), 2048, kKindShopHomePage) != 1) return 1;
  const TemplateNode* node = FindTemplateNode(set, name.get(), kKindShopHomePage);
  if (node == nullptr) return 1;
  return node->flag == 'n' || node->flag == 'N' ? 0 : 1;
}

int PG_TpltIsDirCopyExcluded(const TemplateSet* set, const char* dir_name) {
  if (set == nullptr || dir_name == nullptr || set->copy_excludes_dirs.empty()) return 0;
  // Tokens of the setting, runs of ';' counting as one; the setting itself is
  // never changed.
  std::string_view all = set->copy_excludes_dirs;
  std::string_view wanted = dir_name;
  std::size_t pos = 0;
  while (pos < all.size()) {
    std::size_t end = all.find(';', pos);
    if (end == std::string_view::npos) end = all.size();
    if (end > pos && all.substr(pos, end - pos) == wanted) return 1;
    pos = end + 1;
  }
  return 0;
}

void PrintTpltList(const TemplateList& list) {
  for (const TemplateNode& node : list) {
    if (!node.display_name.empty()) std::printf("DisplayName: %s\n", node.display_name.c_str());
    if (!node.template_file.empty()) std::printf("FilePath: %s\n", node.template_file.c_str());
    if (!node.output_file.empty()) std::printf("OutputFile: %s\n", node.output_file.c_str());
  }
}

void PrintTemplateSet(const TemplateSet* set) {
  if (set == nullptr) return;
  if (!set->creator_name.empty()) std::printf("CreatorName: %s\n", set->creator_name.c_str());
  if (!set->copyright.empty()) std::printf("Copyright: %s\n", set->copyright.c_str());
  if (!set->style_name.empty()) std::printf("StyleName: %s\n", set->style_name.c_str());
  if (!set->info_page.empty()) std::printf("InfoPage: %s\n", set->info_page.c_str());
  const struct {
    const char* heading;
    const TemplateList* list;
  } sections[] = {
      {"\nDefaultProdPage\n", &set->default_product_page},
      {"\nProdPages\n", &set->product_pages},
      {"\nSitePages\n", &set->site_pages},
      {"\nShopHomePages\n", &set->shop_home_pages},
      {"\nSearchPage\n", &set->search_page},
      {"\nTillboxPages\n", &set->cart_pages},
  };
  for (const auto& s : sections) {
    if (s.list->empty()) continue;
    std::fputs(s.heading, stdout);
    PrintTpltList(*s.list);
  }
}

}  // namespace storegen
