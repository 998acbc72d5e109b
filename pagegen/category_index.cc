#include "pagegen/category_index.h"

#include "cgisupport/str_util.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"

namespace storegen {

void CategoryIndex::Build() {
  built_ = true;
  for (const SkuList* node = list_; node != nullptr; node = NextSkuNode(node)) {
    const PAPI_Pair* category = FindProdAttr(node->record, "TILLBOXCATEGORY");
    if (category == nullptr || category->value == nullptr) {
      by_category_.clear();
      return;
    }
    by_category_[AsciiLowered(category->value)].push_back(node);
  }
  usable_ = true;
}

const std::vector<const SkuList*>* CategoryIndex::Products(const SkuList* list,
                                                           std::string_view category) {
  if (list != list_) return nullptr;
  if (!built_) Build();
  if (!usable_) return nullptr;
  auto it = by_category_.find(AsciiLowered(category));
  return it != by_category_.end() ? &it->second : &none_;
}

}  // namespace storegen
