#include "driver/run_messages.h"

#include <sys/stat.h>

#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "cgisupport/config_hints.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/filelist/file_list.h"

namespace storegen {
namespace {

bool IsRelative(std::string_view path) {
  return !path.empty() && path.front() != '/' && path.front() != '\\';
}

// "KEY (FILE:LINE)"
std::string KeyAt(const char* cfg, const char* key) {
  std::string at = std::string(key) + " (" + cfg;
  if (int line = ConfigKeyLine(cfg, key); line > 0) at += ":" + std::to_string(line);
  return at + ")";
}

}  // namespace

void ReportMissingValue(const char* option) {
  ReportError({}, std::string("option ") + option + " needs a value; storegen --help lists them",
              "Invalid command line\n");
}

void ReportStoreConfigNotFound(const char* given, const char* resolved,
                               const std::string& start_dir) {
  std::string detail = "store configuration not found; " + ProgramDirectoryNote();
  struct stat st;
  if (IsRelative(given) && !start_dir.empty()) {
    std::string there = start_dir + "/" + given;
    if (stat(there.c_str(), &st) == 0) detail += "; give its full path, " + there;
  }
  ReportError({resolved}, detail, "File not found: %s\n", resolved);
}

void ReportGeneratorNotAllowed(const char* cfg) {
  Where where{cfg};
  std::string detail;
  if ((where.line = ConfigKeyLine(cfg, "AllowPagegen")) > 0) {
    detail = "AllowPagegen says no: this store's pages may not be generated; set it to Yes";
  } else {
    std::string hint = MissingKeyHint(cfg, "AllowPagegen", &where.line);
    detail = "AllowPagegen is missing, so this store's pages may not be generated; " +
             (hint.empty() ? std::string("add the line AllowPagegen<TAB>Yes") : hint);
  }
  ReportError(where, detail, "The page generator is not configured to run\n");
}

void ReportMissingKey(const char* cfg, const char* key) {
  Where where{cfg};
  std::string hint = MissingKeyHint(cfg, key, &where.line);
  std::string detail = std::string("required key ") + key + " is missing";
  detail += hint.empty() ? "; add a line " + std::string(key) + "<TAB>value" : ": " + hint;
  ReportError(where, detail, "%s not found in %s\n", key, cfg);
}

void ReportSkuRequired() {
  ReportError({}, "-p needs the product's SKU: storegen -c Cfg -p SKU",
              "Sku argument required for dynamic pages\n");
}

void ReportDatabaseNotFound(const char* db, const char* cfg) {
  ReportError({db},
              "product database not found, named by " + KeyAt(cfg, "ProductDatabase") + "; " +
                  ProgramDirectoryNote(),
              "File not found: %s\n", db);
}

void ReportMissingSettings(bool no_output_root, bool no_products, bool no_config, bool no_store_dir,
                           const char* cfg) {
  std::string detail;
  auto add = [&detail](const std::string& part) { detail += (detail.empty() ? "" : "; ") + part; };
  if (no_config) add("no store configuration: give -c Cfg");
  if (no_output_root)
    add("a static run needs -o OutPath, the web server's document root (storegen --help)");
  if (no_products && !no_config)
    add(std::string(cfg) + " names neither ProductDatabase nor ProductAPILibrary");
  if (no_store_dir && !no_config) add(std::string(cfg) + " gives StoreDir no value");
  ReportError({}, detail, "Config file, OutPath, TargetDir and ProductDatabase required\n");
}

void ReportOutputDirFailed(const char* dir, int error) {
  ReportError({dir},
              std::string("cannot create the store's output directory (-o OutPath followed by "
                          "StoreDir): ") +
                  std::strerror(error),
              "Unable to create directory: %s\n", dir);
}

void ReportTemplateSetFailed(const char* set_cfg, const char* cfg) {
  struct stat st;
  std::string detail;
  if (stat(set_cfg, &st) != 0) {
    detail = "template set not found: " + KeyAt(cfg, "PageGenTmpltSet") +
             " names it, with .cfg added, in the template directory (PageGenTemplateDir, else "
             "the store configuration's directory)";
  } else if (S_ISDIR(st.st_mode)) {
    detail = "the template set's configuration is a directory; it is the file " +
             std::string("beside the set's directory, its name followed by .cfg");
  } else if (!S_ISREG(st.st_mode)) {
    detail = "the template set's configuration is not a regular file";
  } else if (st.st_size == 0) {
    detail = "the template set's configuration is empty";
  } else {
    detail =
        "the template set's configuration defines nothing: its lines read "
        "key<TAB>value (ShopHomePage, ProductPage, ...)";
  }
  ReportError({set_cfg}, detail, "Error processing template set config file %s\n", set_cfg);
}

void ExplainErrorList(const FileList* errlist) {
  std::vector<std::pair<int, int>> counts;  // code, entries; in order of first entry
  for (const FileList* e = errlist; e != nullptr; e = e->next) {
    if (e->text == nullptr) continue;
    auto it = counts.begin();
    while (it != counts.end() && it->first != e->code)
      ++it;
    if (it == counts.end()) it = counts.insert(it, {e->code, 0});
    ++it->second;
  }
  for (const auto& [code, entries] : counts) {
    std::string line = "error list: " + std::to_string(entries) +
                       (entries == 1 ? " entry" : " entries") + " with " + std::to_string(code);
    if (const ResultMeaning* m = FindResultMeaning(code)) {
      line += std::string(": ") + (m->entry != nullptr ? m->entry : m->cause);
      if (m->remedy != nullptr) line += std::string("; ") + m->remedy;
    }
    ReportNote(line);
  }
}

void ReportRunEnd(int code) {
  if (code == 0) return;
  std::string line = "the run ended with " + std::to_string(code) + " (exit status " +
                     std::to_string(ExitStatusFor(code)) + ")";
  if (const ResultMeaning* m = FindResultMeaning(code)) line += std::string(": ") + m->cause;
  ReportNote(line);
}

}  // namespace storegen
