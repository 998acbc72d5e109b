// The bundled sample store, copied into a directory of its own with its own
// link of the program, for holding the pages of one product source against
// another's: the text files against a product library's database.
#ifndef STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_
#define STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_

#include <string>
#include <vector>

#include "tests/support/test_util.h"

namespace storegen::testing {

class SampleStore {
 public:
  // The sample from |sample_dir|, reading its text files, with a probe of
  // category data through the category connection: a category tag on the
  // list pages and a category list on the home page.
  explicit SampleStore(const std::string& sample_dir);

  // Switches the store to the product library |library|, configured by
  // |api_cfg|, and names |product_db| as its ProductDatabase; the text
  // files go, so that the generator can only read the library's database.
  void UseLibrary(const std::string& library, const std::string& api_cfg,
                  const std::string& product_db);

  const std::string& dir() const { return dir_.path(); }
  std::string Path(const std::string& relative) const { return dir_.Path(relative); }
  std::string cfg() const { return dir_.Path("lantern.cfg"); }
  // Runs the program with "-c CFG" and |args|.
  RunResult Run(std::vector<std::string> args) const;

 private:
  void SetProductDatabase(const std::string& value);

  ScopedTempDir dir_;
  std::string program_;
};

// Expects |store| to write what |reference| writes: the same files with the
// same bytes from a static run (paths of the store's own directory aside),
// and the same answers to product page requests for every SKU and an
// unknown one, and to list page requests for every category.
void ExpectSamePages(const SampleStore& reference, const SampleStore& store);

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_SAMPLE_STORE_H_
