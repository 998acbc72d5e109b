// A copy of the sample store installed in a test's own directory for runs of
// storegen: the program linked in as bin/storegen (the run lock, the status
// log and the search gateway template live beside it), the indexer's template
// in swish/, the store's files in store/, pages below out/.
#ifndef STOREGEN_TESTS_CONCURRENCY_SAMPLE_STORE_H_
#define STOREGEN_TESTS_CONCURRENCY_SAMPLE_STORE_H_

#include <map>
#include <string>
#include <vector>

namespace storegen::testing {

struct SampleStore {
  std::string root;   // the directory given to InstallSampleStore
  std::string bin;    // root/bin/storegen
  std::string cfg;    // root/store/lantern.cfg
  std::string out;    // root/out, the static runs' output path
  std::string pages;  // root/out/lantern/, where the pages go

  // The command line of a full static run, and of a dynamic product page.
  std::vector<std::string> StaticRun() const;
  std::vector<std::string> ProductPage(const std::string& sku) const;
};

// Copies the sample store into |root|, points its product database at the
// copy and sets |keys| in its configuration (an empty value removes a key).
SampleStore InstallSampleStore(const std::string& root,
                               const std::map<std::string, std::string>& keys = {});

// Sets |keys| in the configuration file |cfg| (an empty value removes a key),
// leaving no backup file behind.
void SetConfigKeys(const std::string& cfg, const std::map<std::string, std::string>& keys);

// Replaces the sample products with |count| generated ones (SKU "P00001"...).
void WriteManyProducts(const SampleStore& store, int count);

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_CONCURRENCY_SAMPLE_STORE_H_
