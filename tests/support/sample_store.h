// A copy of the sample store installed in a test's own directory for runs of
// storegen: the program linked in as bin/storegen (the run lock, the status
// log and the search gateway template live beside it), the indexer's template
// in swish/, the store's files in store/, pages below out/.
#ifndef STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_
#define STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_

#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/test_util.h"

namespace storegen::testing {

struct SampleStore {
  std::string root;   // the directory given to InstallSampleStore
  std::string bin;    // root/bin/storegen
  std::string cfg;    // root/store/lantern.cfg
  std::string out;    // root/out, the static runs' output path
  std::string pages;  // root/out/lantern/, where the pages go

  // root/store/|name|.
  std::string Store(const std::string& name) const { return root + "/store/" + name; }
  // The command line of a full static run, and of a dynamic product page.
  std::vector<std::string> StaticRun() const;
  std::vector<std::string> ProductPage(const std::string& sku) const;
  // Runs the program with "-c CFG" and |args|.
  RunResult Run(std::vector<std::string> args) const;
};

// Copies the sample store into |root|, points its product database at the
// copy and sets |keys| in its configuration (an empty value removes a key).
SampleStore InstallSampleStore(const std::string& root,
                               const std::map<std::string, std::string>& keys = {});

// Sets |keys| in the configuration file |cfg|: every line of such a key is
// dropped, and a line "key TAB value" added unless the value is empty.
void SetConfigKeys(const std::string& cfg, const std::map<std::string, std::string>& keys);

// Replaces the sample products with |count| generated ones (SKU "P00001"...).
void WriteManyProducts(const SampleStore& store, int count);

// Switches |store| to the product library |library|, configured by
// |api_cfg|, with |product_db| as its ProductDatabase; the text files go, so
// that the generator can only read the library's database.
void UseLibrary(const SampleStore& store, const std::string& library, const std::string& api_cfg,
                const std::string& product_db);

// storegen-fcgi (built beside storegen) answering for a sample store with
// one worker, on a socket in the store's root, its error output in
// "fcgi.log" there; each request is passed by libfcgi's cgi-fcgi, as a web
// server passes it. Stopped (SIGTERM) when destroyed.
class StoreResponder {
 public:
  // Null when storegen-fcgi was not built or cgi-fcgi (Debian: libfcgi-bin)
  // is missing.
  static std::unique_ptr<StoreResponder> Start(const SampleStore& store);
  ~StoreResponder();
  StoreResponder(const StoreResponder&) = delete;
  StoreResponder& operator=(const StoreResponder&) = delete;

  // The answer, headers included, to the store's link for |args| ("-p SKU",
  // "-f N", "-C CATEGORY -f N").
  std::string Get(const std::vector<std::string>& args) const;
  std::string Log() const;

  // The worker's pid (0 when there is none), its open descriptors and its
  // resident size in KiB.
  pid_t Worker() const;
  std::size_t WorkerDescriptors() const;
  long WorkerKiB() const;

 private:
  explicit StoreResponder(const SampleStore& store);

  std::string socket_, log_;
  pid_t pid_ = -1;
};

// Expects |store| to write what |reference| writes: the same files with the
// same bytes from a static run (paths of the store's own directory aside),
// and the same answers to product page requests for every SKU and an unknown
// one, and to list page requests for every category. Both get a probe of
// category data first: a category tag on the list pages and a category list
// on the home page. Given |responder| (answering for |store|), its answers to
// the same requests too: the page the reference writes, or "Status: 404"
// where it makes none.
void ExpectSamePages(const SampleStore& reference, const SampleStore& store,
                     const StoreResponder* responder = nullptr);

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_
