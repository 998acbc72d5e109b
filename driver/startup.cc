#include "driver/startup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_util.h"
#include "cgisupport/misc_util.h"
#include "cgisupport/path_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "driver/command_line.h"
#include "driver/dir_copy.h"
#include "driver/generation_run.h"
#include "driver/run_files.h"
#include "driver/run_messages.h"
#include "driver/usage.h"
#include "index/search_index.h"
#include "pagegen/filelist/file_list.h"
#include "storedata/attribute_db.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

// Set once ShutdownPageGen has run (ResetShutdown clears it).
int g_shut_down = 0;

constexpr char kLockMessage[] = "Page generator already running\n";

// What start-up knows besides PageGenState.
struct Startup {
  CommandLine cl;
  bool cgi_paths_set = false;    // PATH_INFO and PATH_TRANSLATED both set
  bool indexing = false;         // AllowIndex begins with "y"
  bool index_no_create = false;  // the index was opened without writing files
  std::string html_root;         // the output root before the store's directory
};

bool Exists(const char* path) {
  struct stat info;
  return stat(path, &info) == 0;
}

// Every run that got past the lock ends here: the report line for "-b"
// callers, then the shut-down.
int EndRun(const Startup& s, int code) {
  if (s.cl.report) std::printf("%s=%d", "ReturnCode", code);
  ReportRunEnd(code);
  ShutdownPageGen();
  return code;
}

// Checks that the request can run: a SKU for a product page, the product
// database or library, the output root (from the CGI variables when not
// given), the store configuration and directory.
int CheckRequest(const Startup& s) {
  RunState& st = PageGenState;
  if ((st.dynamic & kDynSinglePage) != 0 && (st.dynamic & kDynListRequest) == 0 &&
      st.pSkuList == nullptr) {
    ReportSkuRequired();
    return kBadCommandLine;
  }
  if (st.szTemplateFile[0] == '\0' && st.szCategory[0] != '\0') {
    GetConfigItem(st.szConfig, kCategoryListTemplateKey, st.szTemplateFile, kPathSize, 0);
  }
  if (st.szTemplateFile[0] == '\0') {
    GetConfigItem(st.szConfig, kShopHomeListTemplateKey, st.szTemplateFile, kPathSize, 0);
  }
  if (st.szAPILib[0] == '\0') {
    ResolvePath(st.szDbName, kPathSize);
    // An unnamed database is refused below, with the other missing settings.
    if (st.szDbName[0] != '\0' && !Exists(st.szDbName)) {
      ReportDatabaseNotFound(st.szDbName, st.szConfig);
      return kFileNotFound;
    }
  } else {
    ResolvePath(st.szAPILib, kPathSize);
    if (st.szAPIConfig[0] != '\0') ResolvePath(st.szAPIConfig, kPathSize);
  }
  if (!s.cl.out_given && s.cgi_paths_set) {
    GetHTMLRoot(st.szOutPath, sizeof st.szOutPath);
    if (!s.cl.alias_given) GetHTMLRootAlias(st.szHtmlAlias, sizeof st.szHtmlAlias);
  }
  const bool no_output_root = IsStaticRun() && st.szOutPath[0] == '\0';
  const bool no_products = st.szDbName[0] == '\0' && st.szAPILib[0] == '\0';
  if (no_output_root || no_products || st.szConfig[0] == '\0' || st.szHtmlPath[0] == '\0') {
    ReportMissingSettings(no_output_root, no_products, st.szConfig[0] == '\0',
                          st.szHtmlPath[0] == '\0', st.szConfig);
    return kBadCommandLine;
  }
  return kOk;
}

// Turns the output root into the store's output directory: the store
// directory is placed below the root, without the part that the HTML root's
// alias already stands for.
void ComposeOutputDirectory(Startup* s) {
  RunState& st = PageGenState;
  s->html_root = st.szOutPath;
  AppendSlashIfMissing(st.szOutPath);
  AppendSlashIfMissing(st.szHtmlPath);
  std::string_view html(st.szHtmlPath);
  std::string_view alias(st.szHtmlAlias);
  if (!alias.empty()) VerbosePrintf("HTML root alias %s\n", st.szHtmlAlias);
  // A request without an output root writes nothing to disk; its output
  // path stays empty.
  if (st.szOutPath[0] == '\0') return;
  if (!alias.empty() && html.starts_with(alias)) {
    html.remove_prefix(alias.size());
    if (!html.empty() && IsDirSlash(html.front())) html.remove_prefix(1);
  } else if (!html.empty() && IsDirSlash(html.front())) {
    html.remove_prefix(1);
  }
  AppendTruncated(st.szOutPath, html);
}

// Reads the index keys and opens the store's index when the store allows
// indexing; a request for one page or one site page opens it without
// writing its files.
void OpenIndex(Startup* s) {
  RunState& st = PageGenState;
  GetConfigItem(st.szConfig, "AllowIndex", st.szAllowIndex, sizeof st.szAllowIndex, 0);
  if (st.szAllowIndex[0] == 'Y') st.szAllowIndex[0] = 'y';
  s->indexing = st.szAllowIndex[0] == 'y';
  if (!s->indexing) return;

  IndexSettings& index = GetIndexSettings();
  GetConfigItem(st.szConfig, "IndexSwishCfg", index.swish_cfg, sizeof index.swish_cfg, 0);
  GetConfigItem(st.szConfig, "IndexSwishDir", index.swish_dir, sizeof index.swish_dir, 0);
  AppendSlashIfMissing(index.swish_dir);
  GetConfigItem(st.szConfig, "IndexWaisDir", index.wais_dir, sizeof index.wais_dir, 0);
  AppendSlashIfMissing(index.wais_dir);
  GetConfigItem(st.szConfig, "IndexIconDir", index.icon_dir, sizeof index.icon_dir, 0);

  const char* store = s->cl.store_name.c_str();
  const char* root = s->html_root.c_str();
  s->index_no_create = !IsStaticRun() || s->cl.single_site_page;
  if (s->index_no_create) {
    InitIndexNoCreate(store, st.szHtmlPath, st.szHtmlAlias, root);
  } else {
    InitIndex(store, st.szHtmlPath, st.szHtmlAlias, root);
  }
}

// Templates are read relative to PageGenTemplateDir, or to the store
// configuration's directory when the store names none.
void EnterTemplateDirectory() {
  RunState& st = PageGenState;
  std::string from = CurrentDirectory();
  char dir[kPathSize] = {};
  GetConfigItem(st.szConfig, "PageGenTemplateDir", dir, sizeof dir, 0);
  if (dir[0] == '\0') {
    std::string_view cfg(st.szConfig);
    std::size_t sep = cfg.find_last_of("/\\");
    if (sep != std::string_view::npos) CopyTruncated(dir, cfg.substr(0, sep == 0 ? 1 : sep));
  }
  VerbosePrintf("Changing directories from %s to %s\n", from.c_str(), dir);
  // A directory that cannot be entered shows up as templates not found.
  if (dir[0] != '\0' && chdir(dir) != 0) return;
}

// The list of the files this store's runs wrote, kept in its output directory.
std::string FileListPath() {
  return std::string(PageGenState.szOutPath) + kFileListName;
}

// A static run that writes pages begins the store's list of written files
// (a full run announces the removal of the previous run's pages, which
// happens at its end) and makes the output directory.
int PrepareOutputDirectory(const Startup& s) {
  if (IsStaticRun() && PageGenState.copydirs == 0)
    BeginFileList(FileListPath(), CurrentDirectory(), s.cl.full_run);
  if (IsStaticRun() && tb_mkdir(PageGenState.szOutPath, 0755) != 0) {
    ReportOutputDirFailed(PageGenState.szOutPath, errno);
    return kDirNotCreatable;
  }
  return kOk;
}

void PrintSummary() {
  const RunState& st = PageGenState;
  VerbosePrintf("Output Path: %s\n", st.szOutPath);
  VerbosePrintf("Database: %s\n", st.szDbName);
  VerbosePrintf("Template Set: %s\n", st.szTmpltSet);
  if (st.szAPILib[0] != '\0') VerbosePrintf("API Library: %s\n", st.szAPILib);
  if (st.szAPIConfig[0] != '\0') VerbosePrintf("API Library Config: %s\n", st.szAPIConfig);
  VerbosePrintf("Store Config: %s\n", st.szConfig);
}

int LoadTemplateSet() {
  RunState& st = PageGenState;
  AppendTruncated(st.szTmpltSet, ".cfg");
  ResolvePath(st.szTmpltSet, kPathSize);
  VerbosePrintf("\nTemplate Set Config: %s\n", st.szTmpltSet);
  st.pTpltSet = PG_InitTemplateSet(st.szTmpltSet);
  if (st.pTpltSet == nullptr) {
    ReportTemplateSetFailed(st.szTmpltSet, st.szConfig);
    return kTemplateSetFailed;
  }
  return kOk;
}

// Start-up from the lock on: everything a run needs before it copies or
// generates.
int StartRun(Startup* s) {
  if (int rc = CheckRequest(*s); rc != kOk) return rc;
  ComposeOutputDirectory(s);
  OpenIndex(s);
  EnterTemplateDirectory();
  if (int rc = PrepareOutputDirectory(*s); rc != kOk) return rc;
  PrintSummary();
  return LoadTemplateSet();
}

// The attribute database sits beside the product database: its name with
// the extension replaced by ".adb". A database that cannot be opened leaves
// the run without attributes.
void OpenAttributeDatabase() {
  RunState& st = PageGenState;
  if (st.szDbName[0] == '\0') return;
  std::string_view db(st.szDbName);
  CopyTruncated(st.szAttrDb, db.substr(0, db.rfind('.')));
  AppendTruncated(st.szAttrDb, ".adb");
  // With a product library the database's name is not resolved, so a
  // relative one stands for a file in the template directory. When none is
  // there, the attribute database is looked for where a relative name
  // leads for the built-in reader: in the program's directory.
  if (st.szAPILib[0] != '\0' && !IsDirSlash(st.szAttrDb[0]) && !Exists(st.szAttrDb)) {
    std::string beside_program = ProgramFile(st.szAttrDb);
    if (Exists(beside_program.c_str())) CopyTruncated(st.szAttrDb, beside_program);
  }
  st.ad_handle = AD_InitAttributePool(st.szAttrDb);
  if (st.ad_handle == nullptr) {
    VerbosePrintf("Error initializing attribute database %s\n", st.szAttrDb);
  }
}

int CopyOnlyRun() {
  int rc = CopyDirs();
  if (rc == kOk) rc = CopySecureFiles();
  return rc;
}

// Results after which no page of the run is missing: a product without a
// template has no page, and a warning comes with a finished page.
bool LeavesNoPageUnwritten(int code) {
  return code == kOk || code == kNoTemplateForProduct || code == kUnresolvedCategoryTag ||
         code == kDefaultPictureUsed;
}

// A full run that wrote every page replaces the previous run's pages and
// list; one that did not keeps them all, since a page it failed to write
// (or a page that a failed one links to) may be one of them. Other runs add
// their pages to the list.
ListEnd HowListEnds(const Startup& s, int rc) {
  if (!s.cl.full_run) return ListEnd::kAppend;
  bool complete = LeavesNoPageUnwritten(rc);
  for (const FileList* e = PageGenState.errlist; complete && e != nullptr; e = e->next)
    complete = LeavesNoPageUnwritten(e->code);
  return complete ? ListEnd::kReplace : ListEnd::kKeep;
}

int GenerateRun(const Startup& s) {
  RunState& st = PageGenState;
  if (!InitProdAPI(st.szAPILib)) return kProductApiFailed;
  OpenAttributeDatabase();
  int rc = GeneratePages();
  if (IsStaticRun() && (CopyDirs() != kOk || CopySecureFiles() != kOk)) return kCopyFailed;
  FreeSkuList(st.pSkuList);
  st.pSkuList = nullptr;
  if (s.indexing) {
    if (s.index_no_create) {
      ShutdownIndexNoCreate();
    } else {
      ShutdownIndex();
    }
  }
  VerbosePrintf("Done rc=%d\n", rc);
  // A dynamic request wrote its page to standard output only: no report and
  // no file list.
  if (IsStaticRun()) {
    OutputFileList(st.errlist);
    ExplainErrorList(st.errlist);
    if (!FinishFileList(st.dellist, HowListEnds(s, rc))) {
      const std::string list = FileListPath();
      ReportError({list},
                  std::string("the list of written files could not be written (") +
                      std::strerror(errno) + "); the old list is kept",
                  "Unable to open file %s\n", list.c_str());
      rc = kOutputNotCreatable;
    }
  }
  return rc;
}

void ShutdownAtExit() {
  ShutdownPageGen();
}

std::string ExeName(const char* argv0) {
  char name[kPathSize];
  GetExeName(argv0 != nullptr ? argv0 : "", name, sizeof name);
  return name;
}

}  // namespace

void ReleaseRunObjects() {
  RunState& st = PageGenState;
  std::free(st.pszShopHome);
  st.pszShopHome = nullptr;
  FreeSkuList(st.pSkuList);
  st.pSkuList = nullptr;
  FreeFileList(st.errlist);
  st.errlist = nullptr;
  FreeFileList(st.dellist);
  st.dellist = nullptr;
  AD_ShutdownAttributePool(st.ad_handle);
  st.ad_handle = nullptr;
  PG_ShutdownTemplateSet(st.pTpltSet);
  st.pTpltSet = nullptr;
  ShutdownProdAPI();
}

int ShutdownPageGen() {
  if (g_shut_down != 0) return g_shut_down;
  ReleaseRunObjects();
  SettleStatusLog();
  if (PageGenState.fpRedirect != nullptr) {
    // The status log is standard output itself: it is closed when the
    // process ends, or replaced when an in-process request gives standard
    // output back.
    std::fflush(PageGenState.fpRedirect);
    PageGenState.fpRedirect = nullptr;
  }
  ReleaseRunLock();
  ++g_shut_down;
  return 0;
}

void ResetShutdown() {
  g_shut_down = 0;
}

int PageGenMain(int argc, char** argv) {
  return RunPageGen(argc, argv, false);
}

int RunPageGen(int argc, char** argv, bool in_process) {
  const char* argv0 = argc > 0 ? argv[0] : "";
  std::string exe = ExeName(argv0);
  // Asking for help or the version touches no file of the program's.
  if (AnswerHelpOrVersion(argc, argv, exe)) return kOk;
  if (!in_process) std::atexit(ShutdownAtExit);
  Startup s;
  s.cl.start_dir = CurrentDirectory();
  EnterProgramDirectory(argv0);
  EndOnStopSignals();
  SetDiagnosticProgram(exe, ProgramDirectory());
  if (argc < 2) {
    PrintBanner(exe, false);
    Usage(exe);
    ShutdownPageGen();
    return kOk;
  }

  s.cgi_paths_set =
      std::getenv("PATH_INFO") != nullptr && std::getenv("PATH_TRANSLATED") != nullptr;
  if (int rc = ParseCommandLine(argc, argv, &s.cl); rc != kOk) return EndRun(s, rc);
  if (in_process && IsStaticRun()) return EndRun(s, kBadCommandLine);
  if (Verbose()) {
    PrintBanner(exe, true);
    if (argc < 3) {
      Usage(exe);
      return EndRun(s, kOk);
    }
  }
  if (IsStaticRun() && !TakeRunLock()) {
    // Shut-down runs at exit and removes the lock file; the companion lock
    // still keeps the running generation apart from the next one. The status
    // log belongs to the run under way: a "-b" caller gets the message on
    // standard output and standard error instead.
    WithdrawStatusLog();
    std::printf("%s", kLockMessage);
    if (s.cl.report) std::fprintf(stderr, "%s: %s", exe.c_str(), kLockMessage);
    return kAlreadyRunning;
  }
  SettleStatusLog();
  if (int rc = StartRun(&s); rc != kOk) return EndRun(s, rc);
  if (PageGenState.copydirs != 0) return EndRun(s, CopyOnlyRun());
  return EndRun(s, GenerateRun(s));
}

}  // namespace storegen
