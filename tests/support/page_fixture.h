// The page generator's tests: a page context over a store configuration in a
// fresh current directory, a template parsed into a string, and a run's lists
// as text.
#ifndef STOREGEN_TESTS_SUPPORT_PAGE_FIXTURE_H_
#define STOREGEN_TESTS_SUPPORT_PAGE_FIXTURE_H_

#include <string>

#include <gtest/gtest.h>

#include "cgisupport/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/list_blocks.h"
#include "pagegen/page_context.h"
#include "pagegen/template_parser.h"
#include "storedata/product_api.h"
#include "templateset/template_set.h"
#include "tests/support/test_util.h"

namespace storegen::testing {

// A record's pair made of two literals.
inline PAPI_Pair Pair(const char* name, const char* value) {
  return {const_cast<char*>(name), const_cast<char*>(value)};
}

// The entries of one of a run's lists as "text=code" lines.
inline std::string Entries(const FileList* list) {
  std::string s;
  for (const FileList* e = list; e != nullptr; e = e->next)
    s += std::string(e->text) + "=" + std::to_string(e->code) + "\n";
  return s;
}

// store.cfg names the shop "Corner Shop"; pages go below /shop/ with their
// links rewritten, from an empty template set. The product API's entry points
// a test binds are unbound afterwards, and the run's lists freed.
class PageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    g_template_nesting = CatList = ProdList = 0;
    WriteFile(cfg_, "ShopName\tCorner Shop\n");
    ctx_.store_cfg = cfg_.c_str();
    ctx_.page_path = "/shop/";
    ctx_.set = &set_;
    ctx_.options = kGenRewriteLinks;
  }
  void TearDown() override {
    FreeFileList(PageGenState.errlist);
    FreeFileList(PageGenState.dellist);
    pdbRetrieve = nullptr;
    pdbRelease = nullptr;
    pdbRetrieveFirstItem = pdbRetrieveNextItem = nullptr;
    ResetRunState();
  }

  // |text| parsed as the template of the page |page_file| ("": none), its
  // code in |*rc|. Every block must be closed afterwards.
  std::string Parse(const std::string& text, int* rc = nullptr, const char* page_file = "") {
    std::string page;
    const int result = ParseTemplateText(text, ctx_, &page, page_file);
    if (rc != nullptr) *rc = result;
    EXPECT_EQ(g_template_nesting, 0) << text.substr(0, 60);
    EXPECT_EQ(CatList + ProdList, 0) << text.substr(0, 60);
    return page;
  }
  static std::string Errors() { return Entries(PageGenState.errlist); }

  ScopedTempDir dir_{true};
  std::string cfg_ = dir_.Path("store.cfg");
  TemplateSet set_;
  PageContext ctx_;
};

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_PAGE_FIXTURE_H_
