#include "pagegen/text_blocks.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/text_match.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr std::size_t kChunkSize = 1000;

// The directory of the page caches: the store's template directory.
std::string CacheDir(const char* store_cfg) {
  char dir[kPathSize] = "./";
  GetConfigItem(store_cfg, "PageGenTemplateDir", dir, sizeof dir, 0);
  return dir;
}

// Copies |fp| into the page in chunks.
void CopyIntoPage(FILE* fp, PageOutput* out) {
  std::vector<char> chunk(kChunkSize);
  std::size_t n;
  while ((n = std::fread(chunk.data(), 1, chunk.size(), fp)) > 0)
    WriteOutput(out, chunk.data(), n);
}

}  // namespace

std::string TextBlockCacheName(std::string_view dir, std::string_view page_file, int n) {
  std::string name(dir);
  if (!name.empty() && !EndsWithDirSlash(name)) name += '/';
  if (!page_file.empty() && IsDirSlash(page_file.front())) page_file.remove_prefix(1);
  name += WithoutExtension(page_file);
  name += std::to_string(n);
  name += ".tmp";
  return name;
}

int BeginTextBlock(PageOutput* out, std::string_view marker, const PageContext& ctx) {
  bool block_open = out->saved_fp != nullptr || out->cache.fp() != nullptr;
  int n = ++out->text_blocks;
  // A block inside a block, and every block of a page without a name, is
  // simply part of the page.
  if (block_open || out->file_name.empty()) return WriteOutput(out, marker);

  std::string cache = TextBlockCacheName(CacheDir(ctx.store_cfg), out->file_name, n);
  if (access(cache.c_str(), F_OK) != 0 && ctx.set != nullptr && !ctx.set->file_name.empty()) {
    std::string seed = TextBlockCacheName(WithoutExtension(ctx.set->file_name), out->file_name, n);
    if (access(seed.c_str(), F_OK) == 0) {
      EnsurePGPDir(cache.c_str());
      tb_CopyFile(seed.c_str(), cache.c_str());
    }
  }
  WriteOutput(out, marker);

  if (FilePtr cached{FopenForReading(cache.c_str(), "rb")}) {
    CopyIntoPage(cached.get(), out);
    out->saved_fp = out->fp;
    out->fp = nullptr;
    return 0;
  }
  VerbosePrintf("Creating tmp file %s\n", cache.c_str());
  EnsurePGPDir(cache.c_str());
  if (!out->cache.Open(cache)) {
    ReportError({AbsolutePathForMessage(cache)},
                std::string("cannot write the text-block cache: ") + std::strerror(errno) +
                    "; the template directory (PageGenTemplateDir) must be writable",
                "Unable to open file %s\n", cache.c_str());
    return kOutputNotCreatable;
  }
  return 0;
}

void EndTextBlock(PageOutput* out, std::string_view marker) {
  if (out->cache.fp() != nullptr) out->cache.Commit(AtomicFile::Sync::kRename);
  if (out->saved_fp != nullptr) {
    out->fp = out->saved_fp;
    out->saved_fp = nullptr;
  }
  WriteOutput(out, marker);
}

void AbandonTextBlock(PageOutput* out) {
  out->cache.Abandon();
  if (out->saved_fp != nullptr) {
    out->fp = out->saved_fp;
    out->saved_fp = nullptr;
  }
}

}  // namespace storegen
