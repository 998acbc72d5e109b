#include "pagegen/list_blocks.h"

#include <cstdio>

#include "pagegen/template_parser.h"

namespace storegen {

int32_t CatList = 0;
int32_t ProdList = 0;

namespace {

// One pass over the block with the page's own context; the counter is put
// back even when the template ends before the end marker.
int ParseBlockOnce(TemplateInput* in, PageOutput* out, long offset, const PageContext& ctx,
                   int32_t* counter) {
  int32_t before = *counter;
  ++*counter;
  std::fseek(in->fp, offset, SEEK_SET);
  int rc = ParseTemplate(in, out, ctx);
  *counter = before;
  return rc;
}

}  // namespace

int ProcessCatListBegin(TemplateInput* in, PageOutput* out, std::string_view /*marker*/,
                        long offset, const PageContext& ctx) {
  return ParseBlockOnce(in, out, offset, ctx, &CatList);
}

int ProcessProdListBegin(TemplateInput* in, PageOutput* out, std::string_view /*marker*/,
                         long offset, const PageContext& ctx) {
  return ParseBlockOnce(in, out, offset, ctx, &ProdList);
}

}  // namespace storegen
