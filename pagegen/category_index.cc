#include "pagegen/category_index.h"

#include "cgisupport/str_util.h"
#include "storedata/sku_list.h"

namespace storegen {

void CategoryIndex::Build() {
  built_ = true;
  // Products mostly share their category's text (a list read from the
  // product file keeps one copy of each): its entry is found by where the
  // text lies, without lowering it again.
  constexpr std::size_t kMaxShared = 1024;
  std::unordered_map<const char*, std::vector<const SkuList*>*> shared;
  for (const SkuList* node = list_; node != nullptr; node = NextSkuNode(node)) {
    const char* category = SkuCategory(node);
    if (category == nullptr) {
      by_category_.clear();
      return;
    }
    auto it = shared.find(category);
    if (it == shared.end()) {
      if (shared.size() == kMaxShared) shared.clear();
      it = shared.emplace(category, &by_category_[AsciiLowered(category)]).first;
    }
    it->second->push_back(node);
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
