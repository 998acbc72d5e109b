#include "tests/support/sample_store.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;

// Every file below |root|, by its path relative to it.
std::set<std::string> FilesBelow(const std::string& root) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    if (entry.is_regular_file()) files.insert(fs::relative(entry.path(), root).string());
  return files;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

// The first field of every line but the first of one of the store's
// databases.
std::vector<std::string> Keys(const std::string& file) {
  std::istringstream lines(ReadFile(file));
  std::vector<std::string> keys;
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line))
    if (!line.empty()) keys.push_back(line.substr(0, line.find('\t')));
  return keys;
}

void AddCategoryProbes(const SampleStore& store) {
  WriteFile(store.Store("modern/list.html"), ReadFile(store.Store("modern/list.html")) +
                                                 "<p>probe %%CATEGORY.TILLBOXCATEGORY%%</p>\n");
  WriteFile(store.Store("modern/home.html"),
            ReadFile(store.Store("modern/home.html")) +
                "<!-- PAGEGEN_CATEGORYLIST_BEGIN -->%%CATEGORY.TILLBOXCATEGORY%%"
                "<!-- PAGEGEN_CATEGORYLIST_END -->\n");
}

}  // namespace

std::vector<std::string> SampleStore::StaticRun() const {
  return {bin, "-o", out, "-c", cfg, "-s", "0"};
}

std::vector<std::string> SampleStore::ProductPage(const std::string& sku) const {
  return {bin, "-c", cfg, "-p", sku};
}

RunResult SampleStore::Run(std::vector<std::string> args) const {
  args.insert(args.begin(), {bin, "-c", cfg});
  return RunProgram(args);
}

SampleStore InstallSampleStore(const std::string& root,
                               const std::map<std::string, std::string>& keys) {
  SampleStore s;
  s.root = root;
  s.bin = InstallStoregen(root + "/bin");
  s.cfg = root + "/store/lantern.cfg";
  s.out = root + "/out";
  s.pages = s.out + "/lantern/";
  std::error_code ec;
  fs::create_directories(root + "/store", ec);
  fs::create_directories(s.out, ec);
  for (const char* name :
       {"modern", "modern.cfg", "lantern.cfg", "products.txt", "products.cdb", "products.adb"}) {
    fs::copy(std::string(SAMPLE_DIR) + "/" + name, root + "/store/" + name,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    EXPECT_FALSE(ec) << name << ": " << ec.message();
  }
  // The store allows indexing: the search gateway template goes beside the
  // program, the indexer's template into the sibling swish/.
  for (const auto& [from, to] :
       {std::pair{"cgi-bin/wwwwais.cfg", "bin/wwwwais.cfg"}, std::pair{"swish", "swish"}}) {
    fs::copy(std::string(SAMPLE_DIR) + "/" + from, root + "/" + to, fs::copy_options::recursive,
             ec);
    EXPECT_FALSE(ec) << from << ": " << ec.message();
  }
  std::map<std::string, std::string> all = keys;
  all.emplace("ProductDatabase", root + "/store/products.txt");
  SetConfigKeys(s.cfg, all);
  return s;
}

void SetConfigKeys(const std::string& cfg, const std::map<std::string, std::string>& keys) {
  std::istringstream lines(ReadFile(cfg));
  std::string text;
  for (std::string line; std::getline(lines, line);)
    if (keys.count(line.substr(0, line.find('\t'))) == 0) text += line + "\n";
  for (const auto& [key, value] : keys)
    if (!value.empty()) text += key + "\t" + value + "\n";
  WriteFile(cfg, text);
}

void WriteManyProducts(const SampleStore& store, int count) {
  std::string text = "SKU\tNAME\tPRICE\tTILLBOXCATEGORY\tDESCRIPTION\n";
  for (int i = 1; i <= count; ++i) {
    char sku[16];
    std::snprintf(sku, sizeof sku, "P%05d", i);
    text += std::string(sku) + "\tProduct " + std::to_string(i) + "\t" +
            std::to_string(i % 90 + 1) + ".50\t" + (i % 2 ? "Kitchen" : "Garden") +
            "\tA plain product, number " + std::to_string(i) + ".\n";
  }
  WriteFile(store.Store("products.txt"), text);
}

void UseLibrary(const SampleStore& store, const std::string& library, const std::string& api_cfg,
                const std::string& product_db) {
  for (const char* ext : {"txt", "cdb", "adb"})
    fs::remove(store.Store("products.") + ext);
  SetConfigKeys(store.cfg, {{"ProductDatabase", product_db},
                            {"ProductAPILibrary", library},
                            {"ProductAPILibConfig", api_cfg}});
}

std::unique_ptr<StoreResponder> StoreResponder::Start(const SampleStore& store) {
  const std::string program = StoregenBinary() + "-fcgi";
  if (access(program.c_str(), X_OK) != 0 || access(CGI_FCGI_PROGRAM, X_OK) != 0) return nullptr;
  return std::unique_ptr<StoreResponder>(new StoreResponder(store));
}

StoreResponder::StoreResponder(const SampleStore& store)
    : socket_(store.root + "/fcgi.sock"), log_(store.root + "/fcgi.log") {
  const std::string cfg = store.root + "/fcgi.cfg";
  const std::string program = StoregenBinary() + "-fcgi";
  WriteFile(cfg, "StoregenProgram\t" + store.bin + "\nStoreConfigDir\t" + store.root +
                     "/store\nStores\tlantern.cfg\n");
  pid_ = fork();
  if (pid_ == 0) {
    int err = open(log_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (err < 0 || dup2(err, STDERR_FILENO) < 0) _exit(126);
    setenv("STOREGEN_FCGI_CONFIG", cfg.c_str(), 1);
    execl(program.c_str(), program.c_str(), "-w", "1", "-s", socket_.c_str(), nullptr);
    _exit(127);
  }
  // The worker is forked once the socket listens.
  for (int i = 0; i < 1000 && Worker() <= 0; ++i)
    usleep(10000);
  EXPECT_GT(Worker(), 0) << Log();
}

StoreResponder::~StoreResponder() {
  kill(pid_, SIGTERM);
  waitpid(pid_, nullptr, 0);
}

std::string StoreResponder::Get(const std::vector<std::string>& args) const {
  std::string query = args[0] == "-p" ? "-p+-c+lantern.cfg" : "-c+lantern.cfg+" + args[0];
  for (std::size_t i = 1; i < args.size(); ++i)
    query += "+" + args[i];
  RunOptions options;
  options.set_env = {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}};
  return RunProgram({CGI_FCGI_PROGRAM, "-bind", "-connect", socket_}, options).out;
}

std::string StoreResponder::Log() const {
  return ReadFile(log_, false);
}

pid_t StoreResponder::Worker() const {
  const std::string pid = std::to_string(pid_);
  std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
  pid_t worker = 0;
  children >> worker;
  return worker;
}

std::size_t StoreResponder::WorkerDescriptors() const {
  // The worker may still be closing the last request's connection after its
  // answer arrived.
  usleep(200000);
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& entry :
       fs::directory_iterator("/proc/" + std::to_string(Worker()) + "/fd"))
    ++n;
  return n;
}

long StoreResponder::WorkerKiB() const {
  std::ifstream status("/proc/" + std::to_string(Worker()) + "/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:" && status >> word) return std::atol(word.c_str());
  }
  return 0;
}

void ExpectSamePages(const SampleStore& reference, const SampleStore& store,
                     const StoreResponder* responder) {
  AddCategoryProbes(reference);
  AddCategoryProbes(store);
  RunResult a = RunProgram(reference.StaticRun());
  RunResult b = RunProgram(store.StaticRun());
  EXPECT_EQ(b.exit_code, a.exit_code);
  EXPECT_EQ(b.out, a.out);
  std::set<std::string> files = FilesBelow(reference.out);
  ASSERT_GT(files.size(), 30u);
  ASSERT_EQ(FilesBelow(store.out), files);
  for (const std::string& file : files) {
    // The list of generated files names them by their absolute paths.
    EXPECT_EQ(Replaced(ReadFile(store.out + "/" + file), store.root, reference.root),
              ReadFile(reference.out + "/" + file))
        << file;
  }

  std::vector<std::vector<std::string>> requests = {
      {"-p", "ll-101"}, {"-p", "NO-SUCH"}, {"-f", "0"}, {"-f", "3"}};
  for (const std::string& sku : Keys(reference.Store("products.txt")))
    requests.push_back({"-p", sku});
  for (const std::string& category : Keys(reference.Store("products.cdb")))
    requests.push_back({"-C", category, "-f", "0"});
  for (const auto& request : requests) {
    a = reference.Run(request);
    b = store.Run(request);
    EXPECT_EQ(b.exit_code, a.exit_code) << request[1];
    EXPECT_EQ(b.out, a.out) << request[1];
    if (request[0] == "-C") {
      EXPECT_NE(b.out.find("<p>probe " + request[1] + "</p>"), std::string::npos) << request[1];
    }
    if (responder == nullptr) continue;
    const std::string answer = responder->Get(request);
    if (a.exit_code == 0) {
      EXPECT_EQ(answer, a.out) << request[1];
    } else {
      EXPECT_EQ(answer.rfind("Status: 404 ", 0), 0u) << request[1] << "\n" << answer;
    }
  }
}

}  // namespace storegen::testing
