#include "driver/admin/admin_main.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cgisupport/cgi_pages.h"
#include "cgisupport/cgi_request.h"
#include "cgisupport/config_file.h"
#include "cgisupport/file_util.h"
#include "cgisupport/path_util.h"
#include "cgisupport/program_config.h"
#include "driver/admin/admin_config.h"
#include "templateset/management.h"

namespace storegen {
namespace {

constexpr std::size_t kMaxFields = 16;
constexpr std::size_t kMaxBody = 1 << 16;         // far more than any of its forms sends
constexpr std::streamsize kMaxLogSize = 1 << 20;  // more than any run report holds

// The decoded request.
struct Request {
  std::vector<std::pair<std::string, std::string>> fields;
  bool post = false;

  // The value of parameter |name| (the first one when repeated), null when
  // the request has none.
  const char* Get(std::string_view name) const {
    for (const auto& [n, v] : fields) {
      if (n == name) return v.c_str();
    }
    return nullptr;
  }
};

std::string HtmlEscape(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '&':
        out += "&amp;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// The first kMaxLogSize bytes of |path|; empty when it cannot be read.
std::string ReadStart(const char* path) {
  std::string text;
  std::ifstream in(path, std::ios::binary);
  if (in) {
    text.resize(kMaxLogSize);
    in.read(text.data(), kMaxLogSize);
    text.resize(static_cast<std::size_t>(in.gcount()));
  }
  return text;
}

bool IsRegularFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

void BeginPage(const char* title, const char* head_extra = "") {
  std::printf(
      "Content-type: text/html\n\n<HTML><HEAD><TITLE>%s</TITLE>%s</HEAD>\n<BODY>\n<H1>%s</H1>\n",
      title, head_extra, title);
}

void EndPage() {
  std::fputs("</BODY></HTML>\n", stdout);
}

// A link to the status report, for a store when one is known.
std::string StatusLink(const std::string& store) {
  std::string href = "?action=status";
  if (!store.empty()) href += "&amp;store=" + store;
  return "<P><A HREF=\"" + href + "\">Show how the last generation run ended</A></P>\n";
}

class Admin {
 public:
  Admin(const AdminConfig& config, const Request& request)
      : config_(config),
        request_(request),
        mail_(config.admin_mail.empty() ? nullptr : config.admin_mail.c_str()) {}

  int Run() {
    const char* action = request_.Get(kActionParam);
    if (action == nullptr) {
      Error("Incomplete request", "The request names no action.", kActionHelp);
    } else if (std::strcmp(action, "info") == 0) {
      ShowInfo();
    } else if (std::strcmp(action, "generate") == 0) {
      Generate();
    } else if (std::strcmp(action, "status") == 0) {
      Status();
    } else {
      Error("Unknown request", "The request names an action this program does not know.",
            kActionHelp);
    }
    return 0;
  }

 private:
  static constexpr const char* kActionHelp =
      "Use action=info (with set=), action=generate (with store=, as a POST request) or "
      "action=status.";

  void Error(const char* title, const char* message, const char* detail = nullptr) {
    ReportError(title, message, detail, nullptr, mail_);
  }

  // Looks up the store the request names (a |required| one or not): its
  // name and configuration file. Returns false after an error page; |cfg|
  // stays empty when no store was named.
  bool StoreConfig(bool required, std::string* name, std::string* cfg) {
    const char* value = request_.Get(kStoreParam);
    if (value == nullptr || *value == '\0') {
      if (!required) return true;
      Error("Incomplete request", "The request must name a store (store=).");
      return false;
    }
    if (!IsPlainName(value)) {
      Error("Invalid store name",
            "A store name may only hold letters, digits, '.', '-' and '_', and may not begin "
            "with '.'.");
      return false;
    }
    std::string path = config_.store_dir + "/" + value + ".cfg";
    if (!IsRegularFile(path)) {
      ReportError("Unknown store", "No store of this name is configured:", "%s", value, mail_);
      return false;
    }
    *name = value;
    *cfg = path;
    return true;
  }

  // Changes into the page generator's directory, where its run lock and
  // status log live. False after an error page.
  bool EnterGeneratorDir() {
    std::string dir = config_.storegen.substr(0, config_.storegen.find_last_of('/') + 1);
    if (!dir.empty() && chdir(dir.c_str()) == 0) return true;
    Error("Page generator not found",
          "The directory of the page generator (StoregenProgram) cannot be entered.");
    return false;
  }

  void ShowInfo() {
    const char* set = request_.Get(kSetParam);
    if (set == nullptr || *set == '\0') {
      Error("Incomplete request", "The request must name a template set (set=).");
      return;
    }
    if (!IsPlainName(set)) {
      Error("Invalid template set name",
            "A template set name may only hold letters, digits, '.', '-' and '_', and may not "
            "begin with '.'.");
      return;
    }
    std::string store;
    std::string store_cfg;
    if (!StoreConfig(false, &store, &store_cfg)) return;
    const char* cfg = store_cfg.empty() ? nullptr : store_cfg.c_str();
    std::string default_dir = config_.template_dir + "/";
    if (!IsRegularFile(PG_TpltTemplateRoot(default_dir.c_str(), cfg) + set + ".cfg")) {
      ReportError("Unknown template set", "No template set of this name is installed:", "%s", set,
                  mail_);
      return;
    }
    if (config_.html_root.empty()) {
      PG_TpltDisplayInfoPage(set, default_dir.c_str(), cfg);
    } else {
      PG_TpltDisplayInfoPageAt(set, default_dir.c_str(), cfg, config_.html_root.c_str(),
                               config_.html_alias.c_str());
    }
  }

  void Generate() {
    if (!request_.post) {
      const char* raw = std::getenv("REQUEST_METHOD");
      std::string method = HtmlEscape(raw != nullptr ? raw : "");
      RequestMethodError(method.c_str());
      return;
    }
    std::string store;
    std::string store_cfg;
    if (!StoreConfig(true, &store, &store_cfg)) return;
    if (access(config_.storegen.c_str(), X_OK) != 0) {
      Error("Page generator not found",
            "The page generator (StoregenProgram) cannot be run, so no generation was started.");
      return;
    }
    // The run must write what the same run from a shell writes: it finds its
    // template set only through the store's own template directory, and it
    // gets the output root as an argument, not from the request.
    char template_dir[4096] = "";
    GetConfigItem(store_cfg.c_str(), "PageGenTemplateDir", template_dir, sizeof template_dir, 0);
    if (template_dir[0] == '\0') {
      ReportError("Store not ready for generation",
                  "The store's configuration names no template directory (PageGenTemplateDir), so "
                  "a run could not find its template set. Add the key to",
                  "%s", store_cfg.c_str(), mail_);
      return;
    }
    std::string root = config_.html_root;
    std::string alias = config_.html_alias;
    if (root.empty()) {
      char buf[4096] = "";
      if (GetHTMLRoot(buf, sizeof buf) == 1) root = buf;
      buf[0] = '\0';
      GetHTMLRootAlias(buf, sizeof buf);
      alias = buf;
    }
    if (root.empty()) {
      Error("No HTML root",
            "Neither the program's configuration (HtmlRoot) nor the web server (PATH_TRANSLATED "
            "and PATH_INFO) names the document root, so a run would not know where to write the "
            "pages.");
      return;
    }
    if (!EnterGeneratorDir()) return;
    // Of requests arriving together, only the one that holds the launch lock
    // may start a run; it keeps the lock until the run holds its own locks
    // (the lock goes with this process).
    if (openlock(kRunLaunchLockFile, 0, 0644) == -1 || PG_RunLocked()) {
      BeginPage("Generation already running");
      std::printf(
          "<P>A generation run is already under way, so no new run was started. Wait until it "
          "has finished, then start the generation again if it is still needed.</P>\n%s",
          StatusLink(store).c_str());
      EndPage();
      return;
    }
    // A full run with every site page, each argument passed whole, in the
    // environment a shell would give it.
    std::vector<std::string> argv = {config_.storegen, "-b", "-o", root};
    if (!alias.empty()) argv.insert(argv.end(), {"-a", alias});
    argv.insert(argv.end(), {"-c", store_cfg, "-s", "0"});
    RemoveCgiRequestVariables();
    // The previous run's report goes, so that the status page cannot show it
    // as this run's outcome.
    std::remove(kStatusLogFile);
    std::remove(kRunMessagesFile);
    BeginPage("Generation started");
    std::printf(
        "<P>The pages of store <B>%s</B> are being generated in the background. A large store "
        "may take several minutes.</P>\n%s",
        store.c_str(), StatusLink(store).c_str());
    EndPage();
    PG_LaunchAndForgetArgv(
        argv, [] { return PG_RunLocked(); }, kRunMessagesFile);
  }

  void Status() {
    std::string store;
    std::string store_cfg;
    if (!StoreConfig(false, &store, &store_cfg)) return;
    if (!EnterGeneratorDir()) return;
    if (PG_ExecutionStatus() == 1) {
      BeginPage("Generation running", "<META HTTP-EQUIV=\"refresh\" CONTENT=\"10\">");
      std::fputs("<P>A generation run is under way. This page looks again every ten seconds.</P>\n",
                 stdout);
      EndPage();
      return;
    }
    const std::string log = ReadStart(kStatusLogFile);
    std::size_t at = log.rfind("ReturnCode=");
    if (at == std::string::npos) {
      BeginPage("No generation report");
      std::fputs(
          "<P>No generation run has finished since the last one was started here, so there is "
          "nothing to report yet.</P>\n",
          stdout);
      EndPage();
      return;
    }
    int rc = std::atoi(log.c_str() + at + std::strlen("ReturnCode="));
    char html_path[256] = "";
    if (!store_cfg.empty()) {
      GetConfigItem(store_cfg.c_str(), "StoreDir", html_path, sizeof html_path, 0);
    }
    int detail = log.find('\t') != std::string::npos ? 1 : 0;
    BeginPage("Last generation run");
    PG_PrintGenError(rc, detail, log.c_str(), html_path,
                     store_cfg.empty() ? nullptr : store_cfg.c_str());
    // What the run said on standard error: which file was at fault, and why.
    const std::string messages = ReadStart(kRunMessagesFile);
    if (!messages.empty()) {
      std::printf("<H2>Messages of the run</H2>\n<PRE>%s</PRE>\n", HtmlEscape(messages).c_str());
    }
    EndPage();
  }

  const AdminConfig& config_;
  const Request& request_;
  const char* mail_;
};

// Decodes the request: the query string of a GET, the form body of a POST.
// Every name and value must decode strictly (no broken escape, no control
// character such as an encoded NUL that would cut a name short). False after
// an error page.
bool DecodeRequest(Request* request, const char* mail) {
  const char* method = std::getenv("REQUEST_METHOD");
  std::string text;
  if (method != nullptr && std::strcmp(method, "POST") == 0) {
    request->post = true;
    const char* type = std::getenv("CONTENT_TYPE");
    if (type == nullptr || std::strcmp(type, "application/x-www-form-urlencoded") != 0) {
      std::string escaped = HtmlEscape(type != nullptr ? type : "");
      ContentTypeError(escaped.c_str());
      return false;
    }
    std::optional<std::size_t> length =
        ParseContentLength(std::getenv("CONTENT_LENGTH"), std::numeric_limits<std::size_t>::max());
    if (!length) {
      ContentLengthError();
      return false;
    }
    if (*length > kMaxBody) {
      ReportError("Bad request", "The request is larger than this program accepts.", nullptr,
                  nullptr, mail);
      return false;
    }
    text.resize(*length);
    text.resize(std::fread(text.data(), 1, text.size(), stdin));
  } else if (method != nullptr && std::strcmp(method, "GET") == 0) {
    const char* query = std::getenv("QUERY_STRING");
    text = query != nullptr ? query : "";
  } else {
    std::string escaped = HtmlEscape(method != nullptr ? method : "");
    RequestMethodError(escaped.c_str());
    return false;
  }
  std::string_view rest = text;
  while (!rest.empty()) {
    std::size_t amp = rest.find('&');
    std::string_view field = rest.substr(0, amp);
    rest = amp == std::string_view::npos ? std::string_view() : rest.substr(amp + 1);
    if (field.empty()) continue;
    if (request->fields.size() == kMaxFields) {
      ReportError("Bad request", "The request holds more fields than this program accepts.",
                  nullptr, nullptr, mail);
      return false;
    }
    std::size_t eq = field.find('=');
    std::optional<std::string> name = DecodeUrlText(field.substr(0, eq), true);
    std::optional<std::string> value =
        DecodeUrlText(eq == std::string_view::npos ? "" : field.substr(eq + 1), true);
    if (!name || !value) {
      ReportError("Bad request",
                  "The request holds a broken escape or a control character, which no name "
                  "this program knows can hold.",
                  nullptr, nullptr, mail);
      return false;
    }
    request->fields.emplace_back(std::move(*name), std::move(*value));
  }
  return true;
}

}  // namespace

int AdminMain(int argc, char** argv) {
  std::string config_path =
      ProgramConfig::Locate(argc > 0 ? argv[0] : nullptr, kAdminConfigName, kAdminConfigEnv);
  AdminConfig config;
  std::string error;
  if (!LoadAdminConfig(config_path, &config, &error)) {
    std::string detail = HtmlEscape(error);
    ReportError("storegen-admin is not configured",
                "The management program cannot use its configuration file:", "%s", detail.c_str(),
                nullptr);
    return 0;
  }
  Request request;
  if (!DecodeRequest(&request, config.admin_mail.empty() ? nullptr : config.admin_mail.c_str())) {
    return 0;
  }
  return Admin(config, request).Run();
}

}  // namespace storegen
