#include "driver/front/front_config.h"

#include <sys/stat.h>

#include <cstring>

#include "cgisupport/cgi_request.h"
#include "cgisupport/program_config.h"

namespace storegen {

bool LoadFrontConfig(const std::string& path, bool need_program, FrontConfig* config,
                     std::string* error) {
  ProgramConfig file(path);
  if (!file.Readable()) {
    *error = "cannot read " + path;
    return false;
  }
  config->storegen = file.PathValue("StoregenProgram");
  config->store_dir = file.PathValue("StoreConfigDir");
  const std::string list = file.Value("Stores");
  for (std::size_t start = 0; start < list.size();) {
    std::size_t end = list.find_first_of(" \t,;", start);
    if (end == std::string::npos) end = list.size();
    std::string name = list.substr(start, end - start);
    start = end + 1;
    if (name.empty()) continue;
    if (!IsPlainName(name) || name[0] == '-') {
      *error = "Stores in " + path + " names \"" + name + "\", which is not a plain file name";
      return false;
    }
    config->stores.push_back(name);
  }
  const char* missing = need_program && config->storegen.empty() ? "StoregenProgram"
                        : config->store_dir.empty()              ? "StoreConfigDir"
                        : config->stores.empty()                 ? "Stores"
                                                                 : nullptr;
  if (missing != nullptr) {
    *error = std::string(missing) + " is not set in " + path;
    return false;
  }
  return true;
}

std::string FrontAnswer(const char* status, const char* text, const char* extra_header) {
  std::string s = status;
  return "Status: " + s + "\n" + extra_header + "Content-type: text/html\n\n<HTML><HEAD><TITLE>" +
         s + "</TITLE></HEAD>\n<BODY>\n<H1>" + s + "</H1>\n<P>" + text + "</P>\n</BODY></HTML>\n";
}

std::string ServerErrorAnswer() {
  return FrontAnswer("500 Internal Server Error", "The page cannot be made at the moment.");
}

std::string NoSuchProductAnswer() {
  return FrontAnswer("404 Not Found", "The store has no such product.");
}

std::string ProductsUnavailableAnswer() {
  return FrontAnswer("503 Service Unavailable",
                     "The store's products cannot be read at the moment; try again shortly.",
                     "Retry-After: 30\n");
}

FrontDecision DecideRequest(const FrontConfig& config, const char* method, const char* query) {
  FrontDecision d;
  if (method == nullptr || (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0)) {
    d.answer =
        FrontAnswer("405 Method Not Allowed", "Pages are only fetched here.", "Allow: GET, HEAD\n");
    return d;
  }
  std::optional<DynamicRequest> request = ParseDynamicRequest(query != nullptr ? query : "");
  if (!request) {
    d.answer = FrontAnswer("400 Bad Request", "This address does not name a page of the store.");
    return d;
  }
  std::string store_cfg;
  for (const std::string& name : config.stores) {
    if (name == request->store) store_cfg = config.store_dir + "/" + name;
  }
  struct stat st;
  if (store_cfg.empty() || stat(store_cfg.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    d.answer = FrontAnswer("404 Not Found", "There is no such store here.");
    return d;
  }
  d.args = DynamicRequestArguments(*request, store_cfg);
  d.kind = request->kind;
  return d;
}

}  // namespace storegen
