// Template parsing. A fixed small store (configuration, template set,
// product, category and attribute databases) is set up once; the input's
// first byte chooses the page's context (product or not, category, product
// list, secure server, dynamic options, a file name for text-block caches)
// and the rest is the template. Checks that parsing ends with a known code,
// and that the nesting and list-block counters are back at zero after every
// page, whatever the template holds, and that a template parsed through
// its pieces and one read character by character give the same page.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <memory>
#include <string>

#include "cgisupport/config_file.h"
#include "cgisupport/run_state.h"
#include "fuzz/fuzz_util.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/list_blocks.h"
#include "pagegen/template_parser.h"
#include "storedata/attribute_db.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

struct Store {
  std::string dir;
  std::string out_dir;  // where category pages of a category list go
  std::string cfg;
  std::string cdb;
  TemplateSet* set = nullptr;
  void* cat_db = nullptr;
  SkuList* skus = nullptr;
  AttributePool* attrs = nullptr;
};

Store& TheStore() {
  static Store store;
  return store;
}

void SetUpStore() {
  Store& s = TheStore();
  s.dir = fuzz::ScratchPath("store");
  std::string tmpl = s.dir + "/templates";
  mkdir(s.dir.c_str(), 0755);
  mkdir(tmpl.c_str(), 0755);
  s.out_dir = s.dir + "/out/";
  s.cfg = s.dir + "/store.cfg";
  fuzz::WriteWholeFile(
      s.cfg,
      "ShopName\tCorner Shop\nStorePhone\t555-0100\nStoreFax\t555-0101\nStoreAddress1\t1 Road\n"
      "StoreAddress2\tTown\nStoreEmail\tshop@example.com\nCurrency\t\nStoreWelcome\tHi &lt;there\n"
      "StoreLogo\timg/logo.gif\nPageGenBgColor\t#ffffff\nPageGenLinkColor\tblue\n"
      "PageGenBgImage\tbg.gif\nPageGenTemplateDir\t" +
          tmpl +
          "/\nCGIBinDirectory\t/cgi-bin\nSecureCGIBinDirectory\t/scgi\nSecureDomain\t"
          "https://secure.example.com\nNonSecureDomain\thttp://www.example.com\nStoreDir\t"
          "/shop/\nSecureStoreDir\t/secure/shop\nSecureConfig\tsecure\nPageGenProg\t"
          "/cgi-bin/storegen\nPageGenShopHomePage\tHome\nProductDatabase\t" +
          s.dir + "/products.txt\n");
  fuzz::WriteWholeFile(s.dir + "/products.txt",
                       "SKU\tNAME\tPRICE\tTILLBOXCATEGORY\tGRAPHIC\tTHUMBNAIL\tATTRIBUTES\n"
                       "A-100\tKettle\t24.50\tTea\timg/kettle one.png\tNA\t1,2\n"
                       "B-200\tCup\tNA\tTea\t\t\t\nC-300\tSpoon\t1.00\tCutlery\tNA\tNA\t3\n");
  s.cdb = s.dir + "/products.cdb";
  fuzz::WriteWholeFile(s.cdb,
                       "TILLBOXCATEGORY\tBLURB\tBANNER\nTea\tLeaves & cups\tNA\n"
                       "Cutlery\t\tbanner.gif\n");
  fuzz::WriteWholeFile(s.dir + "/products.adb",
                       "1\t1\tSize\tS,M,L\n2\t3\tColour\tred\\,dark,blue\n3\t7\tEngraving\t\n");
  fuzz::WriteWholeFile(s.dir + "/set.cfg",
                       "DefaultProductGraphic\tnopic.gif\nDefaultProductThumbnail\tnothumb.gif\n"
                       "DefaultProductPage\tStandard;product.html\nProductPage1\tStandard;"
                       "product.html\nSitePage1\tOrder;order.html;order.html;S\n"
                       "ShopHomePage\tHome;home.html;index.html\nMaxProdPerPage\t2\n");
  s.set = PG_InitTemplateSet((s.dir + "/set.cfg").c_str());
  if (s.set == nullptr || InitProdAPI("") != 1) std::abort();
  s.cat_db = pdbInit(kPapiKey, s.cdb.c_str(), s.cfg.c_str(), "", "");
  s.skus = BuildAllSkuList((s.dir + "/products.txt").c_str(), s.cfg.c_str(), "", "", s.set, nullptr,
                           nullptr, 0, nullptr);
  s.attrs = AD_InitAttributePool((s.dir + "/products.adb").c_str());
  if (s.cat_db == nullptr || s.skus == nullptr || s.attrs == nullptr) std::abort();
  // Relative template and cache paths resolve in the store's directory.
  if (chdir(s.dir.c_str()) != 0) std::abort();
}

// Removes the text-block caches a page left (every ".tmp" file of the
// template directory), so that every input, and each of its two parses,
// starts alike.
void RemoveCaches() {
  const std::string dir = TheStore().dir + "/templates";
  std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
  if (d == nullptr) return;
  while (const dirent* e = readdir(d.get())) {
    const std::string_view name = e->d_name;
    if (name.size() > 4 && name.ends_with(".tmp")) unlink((dir + "/" + std::string(name)).c_str());
  }
}

// List blocks parse their text once per category or product (two and three
// in this store), a nested block once per entry of every block around it, so
// the work can grow as 3 to the power of the nesting depth. Every level needs
// a begin marker of its own: an input whose begin markers could make the
// parser go through more than kMaxListWork bytes is passed over. Such inputs
// add little but took most of the time; deep nesting, up to the nesting
// limit, is the unit tests' part.
constexpr std::size_t kMaxListWork = std::size_t{1} << 15;

bool ListWorkBounded(std::string_view text) {
  constexpr std::string_view kBegin = "LIST_BEGIN";
  std::size_t work = text.size();
  for (std::size_t i = 0; i + kBegin.size() <= text.size(); ++i) {
    std::size_t n = 0;
    while (n < kBegin.size() && std::toupper(static_cast<unsigned char>(text[i + n])) == kBegin[n])
      ++n;
    if (n < kBegin.size()) continue;
    work *= 3;
    if (work > kMaxListWork) return false;
  }
  return true;
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  storegen::fuzz::SilenceStdout();
  storegen::SetUpStore();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  if (size < 1) return 0;
  const fuzz::QuietMessages quiet;  // unknown columns are warned of
  const Store& s = TheStore();
  const uint8_t mode = data[0];
  std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (!ListWorkBounded(text)) return 0;

  PageContext ctx;
  ctx.store_cfg = s.cfg.c_str();
  ctx.cat_db_path = s.cdb.c_str();
  ctx.out_dir = s.out_dir.c_str();
  ctx.page_path = (mode & 0x40) ? "shop/" : "/shop/";
  ctx.output_file = "page.html";
  ctx.set = s.set;
  ctx.attr_db = s.attrs;
  if (mode & 0x01) ctx.product = s.skus->record;
  if (mode & 0x02) ctx.cat_db = s.cat_db;
  if (mode & 0x04) ctx.category = (mode & 0x80) ? "Cutlery" : "Tea";
  if (mode & 0x08) ctx.sku_list = s.skus;
  ctx.secure = (mode & 0x10) ? 1 : 0;
  ctx.options = kGenRewriteLinks | ((mode & 0x20) ? kGenDynamicProducts | kGenDynamicLists : 0);
  PageGenState.verbose = 1;

  // A page is written under a snapshot of the configuration, as a run
  // writes it; both parses below write the same page, so they share it. The
  // file names text-block caches when bit 0x80 is set.
  const ConfigSnapshot snapshot;
  const std::string_view page_file = (mode & 0x80) ? "page.html" : "";
  std::string page;
  const int rc = ParseTemplateText(text, ctx, &page, page_file);
  FUZZ_CHECK(rc == 0 || rc == -18 || rc == -50 || rc == -17 || rc == -8 || rc == -1 || rc == -7 ||
                 rc == -11,
             "unexpected code " + std::to_string(rc));
  FUZZ_CHECK(g_template_nesting == 0,
             "nesting counter left at " + std::to_string(g_template_nesting));
  FUZZ_CHECK(CatList == 0 && ProdList == 0, "list-block counters not back at zero");
  FreeFileList(PageGenState.errlist);
  PageGenState.errlist = nullptr;
  if (!page_file.empty()) RemoveCaches();

  // The same template read character by character, as one too large to be
  // held in memory is, must give the same page.
  std::string scanned;
  const int scanned_rc = ParseTemplateText(text, ctx, &scanned, page_file, false);
  FUZZ_CHECK(scanned_rc == rc && scanned == page, "the scanner and the pieces disagree");
  CatList = ProdList = 0;
  FreeFileList(PageGenState.errlist);
  PageGenState.errlist = nullptr;
  if (!page_file.empty()) RemoveCaches();
  return 0;
}
