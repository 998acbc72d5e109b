// The page generators, one per kind of page: site pages, the search page, the
// cart pages, the shop home page, product list pages and product pages. Each
// resolves its template-set entry, works out the output path, registers
// secure pages, opens the category database for the page (or uses the one a
// CategoryConnectionScope keeps open) and hands over to GenerateHtmlPage.
//
// Results: 0, -18 (category tags unresolved; the page is complete), or
// -1 out of memory, -7 template not openable, -8 page not creatable,
// -9 search index not set up ("Index library not initialized, store not
// indexed\n"), -13 template-set entry not found ("Error resolving template
// display name\n"), or the template parser's error. Messages only in verbose
// mode.
#ifndef STOREGEN_PAGEGEN_PAGE_GENERATORS_H_
#define STOREGEN_PAGEGEN_PAGE_GENERATORS_H_

namespace storegen {

struct AttributePool;
struct SkuList;
struct TemplateSet;

// What every generator is given: the run's paths and the records pages are
// made from. Borrowed.
struct GeneratorArgs {
  const char* html_path = "";  // the store's directory below the HTML root ("/shop/")
  const char* db_path = "";    // product database
  const char* store_cfg = "";  // store configuration
  const char* api_cfg = "";    // product-API configuration
  const char* cart_dir = "";   // the cart's directory
  const char* out_dir = "";    // the store's output directory, ends in "/"
  TemplateSet* set = nullptr;
  AttributePool* attr_db = nullptr;
  SkuList* sku_list = nullptr;  // the products the page's product lists show; null: none
};

// While a scope is open, the generators keep one connection on the category
// database for all their pages, instead of opening and ending one per page;
// the last scope to close ends it. Open a scope around a run's pages, and
// close it before the product API goes away. Scopes nest.
class CategoryConnectionScope {
 public:
  CategoryConnectionScope();
  ~CategoryConnectionScope();
  CategoryConnectionScope(const CategoryConnectionScope&) = delete;
  CategoryConnectionScope& operator=(const CategoryConnectionScope&) = delete;
};

// For a child process that writes pages beside its parent: forgets the run
// scope's category connection without ending it (the parent goes on using
// it, and the two must not share a file position), so that the child's
// pages open one of their own.
void DetachCategoryConnection();

// The arguments of this run (PageGenState) with |sku_list|.
GeneratorArgs GeneratorArgsForRun(SkuList* sku_list);

// The site page with exactly the display name |display_name|. Site pages have
// no data connection and no product list. |pass| (0 or 1) does not change
// the page.
int GenerateSitePage(const char* display_name, const GeneratorArgs& args, int pass);

// The search page ("SearchPage") at the index's output file. A template set
// without one gives no page and 0 ("No search template specified, store not
// indexed\n").
int GenerateSearchPage(const GeneratorArgs& args);

// The cart page with the display name |display_name|. "Take Order",
// "Geography Prompt", "Show Cart" and "Error" (any case) are announced to the
// cart: the page's URL is written to the store configuration under
// "OnlineOrderPage", "PromptForGeographyPage", "PostModCartPage" or
// "ErrorPage" ("Take Order" under "SecureStoreDir" when that is set).
int GenerateTillboxPage(const char* display_name, const GeneratorArgs& args);

// The shop home page |reference| resolves to (a number, "ShopHomePage" and a
// number, or anything else for the first). Keeps its output file in
// szShopHomeName and its template in szTemplateFile; a store that serves
// product or list pages dynamically gets "PageGenShopHomeListTplt" set to the
// template.
int GenerateShopHomePage(const char* reference, const GeneratorArgs& args);

// A product list page from szTemplateFile, listing args.sku_list from
// |list_start| in |category| (null or "" for all): to standard output in a
// dynamic request, else parsed without output.
int GenerateProdListPage(const GeneratorArgs& args, const char* list_start, const char* category);

// The page of the product |node|: "p-" + safe name of its SKU + ".html" in the
// output directory, from the node's template. A node without template is
// entered in the error list with -15 and gives 0.
int GenerateSkuPage(const SkuList* node, const GeneratorArgs& args);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_PAGE_GENERATORS_H_
