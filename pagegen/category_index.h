// The products of a product list by category, for the product lists of
// category pages: each category's page series then goes through its own
// products instead of the whole list. Built from the list when first asked;
// the list must stay as it is while its index is in use.
#ifndef STOREGEN_PAGEGEN_CATEGORY_INDEX_H_
#define STOREGEN_PAGEGEN_CATEGORY_INDEX_H_

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace storegen {

struct SkuList;

class CategoryIndex {
 public:
  explicit CategoryIndex(const SkuList* list) : list_(list) {}
  CategoryIndex(const CategoryIndex&) = delete;
  CategoryIndex& operator=(const CategoryIndex&) = delete;

  // The products of |list| whose "TILLBOXCATEGORY" equals |category|
  // without regard to ASCII case, in list order (empty when none). Null when
  // the index cannot stand in for going through the list: |list| is not the
  // indexed one, or a product has no category (filtering meets it as an
  // error, at the place where it stands).
  const std::vector<const SkuList*>* Products(const SkuList* list, std::string_view category);

 private:
  void Build();

  const SkuList* list_;
  bool built_ = false;
  bool usable_ = false;
  std::unordered_map<std::string, std::vector<const SkuList*>> by_category_;
  std::vector<const SkuList*> none_;
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_CATEGORY_INDEX_H_
