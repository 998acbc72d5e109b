// Link rewriting of one markup. The input's first byte chooses the page's
// context (page path, secure server, dynamic options, product and category);
// the rest is one closed markup, as the template parser hands it over: first
// offered to the link-keyword expansion, then, when that wrote nothing,
// written as a link tag. Checks the result codes and that what is written
// stays within a bound of the markup's size.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "cgisupport/run_state.h"
#include "fuzz/fuzz_util.h"
#include "pagegen/link_rewrite.h"
#include "pagegen/page_context.h"

namespace storegen {
namespace {

PAPI_Pair kProduct[] = {
    {const_cast<char*>("SKU"), const_cast<char*>("A-100")},
    {const_cast<char*>("NAME"), const_cast<char*>("Kettle & Co")},
    {const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("Tea Things")},
    {nullptr, nullptr},
};

std::string& StoreConfig() {
  static std::string path;
  return path;
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  using namespace storegen;
  fuzz::SilenceStdout();
  StoreConfig() = fuzz::ScratchPath("store.cfg");
  fuzz::WriteWholeFile(StoreConfig(),
                       "CGIBinDirectory\t/cgi-bin\nSecureCGIBinDirectory\t/scgi/\nSecureDomain\t"
                       "https://secure.example.com\nNonSecureDomain\thttp://www.example.com/\n"
                       "StoreDir\tshop\nSecureConfig\tsecure\nPageGenProg\t/cgi-bin/storegen\n"
                       "PageGenShopHomePage\tHome\nShopName\tCorner Shop\n");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  if (size < 1) return 0;
  const uint8_t mode = data[0];
  // The parser never hands over more than its 2400-byte markup buffer.
  std::string markup(reinterpret_cast<const char*>(data) + 1, std::min<size_t>(size - 1, 2399));

  static const char* const kPagePaths[] = {"/shop/", "shop/", "", "\\store\\shop\\"};
  PageContext ctx;
  ctx.store_cfg = StoreConfig().c_str();
  ctx.page_path = kPagePaths[mode & 3];
  ctx.out_dir = "/srv/www/shop/";
  ctx.secure = (mode & 0x04) ? 1 : 0;
  ctx.options = kGenRewriteLinks | ((mode & 0x08) ? kGenDynamicProducts : 0) |
                ((mode & 0x10) ? kGenDynamicLists : 0);
  if (mode & 0x20) ctx.product = kProduct;
  if (mode & 0x40) ctx.category = "Tea Things";

  char* text = nullptr;
  size_t length = 0;
  FILE* stream = open_memstream(&text, &length);
  FUZZ_CHECK(stream != nullptr, "open_memstream");
  PageOutput out;
  out.fp = stream;
  int expanded = ExpandLinkKeyword(&out, markup, ctx);
  FUZZ_CHECK(expanded == 0 || expanded == 1 || expanded == -1,
             "ExpandLinkKeyword returned " + std::to_string(expanded));
  int written = 0;
  if (expanded == 0) written = WriteLinkTag(&out, markup, ctx);
  FUZZ_CHECK(written <= 0, "WriteLinkTag returned " + std::to_string(written));
  std::fclose(stream);
  // Expansions add configuration values and paths, never more than a few
  // kilobytes per markup.
  FUZZ_CHECK(length <= markup.size() + 16384, "wrote " + std::to_string(length) + " bytes");
  std::free(text);
  return 0;
}
