// Bad input gives a clear result and no crash: every reader of a file given a
// missing, unreadable, directory, empty, binary or FIFO path (a FIFO is
// refused as missing, never waited on); templates of binary
// bytes, of lines and tags far beyond every buffer; a product database without
// a name line; whole runs over a spoiled store.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/file_util.h"
#include "index/index_files.h"
#include "storedata/attribute_db.h"
#include "storedata/attribute_pool.h"
#include "storedata/product_api.h"
#include "storedata/product_db.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"
#include "tests/support/sample_store.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using namespace testing;

// The kinds of path a reader can be handed.
enum PathKind { kMissing, kUnreadable, kDirectory, kEmpty, kBinary, kFifo };
constexpr PathKind kKinds[] = {kMissing, kUnreadable, kDirectory, kEmpty, kBinary, kFifo};
const char* const kKindNames[] = {"missing", "unreadable", "directory", "empty", "binary", "fifo"};

std::string BinaryBytes() {
  std::string bytes;
  for (int round = 0; round < 40; ++round) {
    for (int b = 0; b < 256; ++b)
      bytes.push_back(static_cast<char>((b * 7 + round) & 0xff));
  }
  return bytes;
}

// A path of |kind| in |dir|.
std::string MakePath(const ScopedTempDir& dir, PathKind kind) {
  std::string path = dir.Path(kKindNames[kind]);
  if (kind == kDirectory) mkdir(path.c_str(), 0755);
  if (kind == kUnreadable || kind == kEmpty) WriteFile(path, kind == kEmpty ? "" : "ShopName\tx\n");
  if (kind == kUnreadable) chmod(path.c_str(), 0);
  if (kind == kBinary) WriteFile(path, BinaryBytes());
  if (kind == kFifo) mkfifo(path.c_str(), 0644);
  return path;
}

// Each reader answers with a small number; the unreadable case runs without
// root's privileges, in a child, so that the permission bits hold.
struct Reader {
  const char* name;
  std::function<int(const char*)> read;
  int want[6];  // per PathKind; -99: any answer will do (binary input)
};

TEST(BadPaths, EveryReaderGivesAClearAnswer) {
  const Reader readers[] = {
      {"GetConfigItem",
       [](const char* p) {
         char buf[256] = "default";
         return GetConfigItem(p, "ShopName", buf, sizeof buf, 0);
       },
       {-1, -1, 0, 0, -99, -1}},
      {"CIL_CreateListFromFile",
       [](const char* p) {
         ConfigItemList* list = CIL_CreateListFromFile(p);
         int answer = list == nullptr ? -1 : CIL_IsListEmpty(list) ? 0 : 1;
         CIL_FreeList(list);
         return answer;
       },
       {-1, -1, 0, 0, -99, -1}},
      {"PG_InitTemplateSet",
       [](const char* p) {
         TemplateSet* set = PG_InitTemplateSet(p);
         PG_ShutdownTemplateSet(set);
         return set == nullptr ? 0 : 1;
       },
       {0, 0, 0, 0, -99, 0}},
      {"AD_InitAttributePool",
       [](const char* p) {
         AttributePool* pool = AD_InitAttributePool(p);
         if (pool == nullptr) return -1;
         int n = static_cast<int>(pool->attributes.size());
         AD_ShutdownAttributePool(pool);
         return n > 0 ? 1 : 0;
       },
       {0, 0, 0, 0, -99, 0}},
      {"product database",
       [](const char* p) {
         void* db = storegen::PAPI_Initialization(kPapiKey, p, "", "", "");
         if (db == nullptr) return -1;
         int32_t position = 0;
         int n = 0;
         for (PAPI_Pair* r = storegen::PAPI_RetrieveFirstItem(db, kPapiKey, 1, p, "", "", "",
                                                              &position, nullptr);
              r != nullptr; r = storegen::PAPI_RetrieveNextItem(db, kPapiKey, 1, p, "", "", "",
                                                                &position, nullptr)) {
           storegen::PAPI_ReleaseInfo(db, kPapiKey, "", r);
           ++n;
         }
         storegen::PAPI_ReleaseInfo(
             db, kPapiKey, "",
             storegen::PAPI_RetrieveInfo(db, kPapiKey, "A1", 1, p, "", "", "", nullptr));
         storegen::PAPI_Cleanup(db, kPapiKey, p, "", "", "");
         return n > 0 ? 1 : 0;
       },
       {-1, -1, 0, 0, -99, -1}},
      {"tb_CopyFile",
       [](const char* p) {
         std::string to = std::string(p) + ".copy";
         int rc = tb_CopyFile(p, to.c_str());
         std::remove(to.c_str());
         return rc;
       },
       {-1, -1, -99, 0, 0, -1}},
  };
  ScopedTempDir dir;
  chmod(dir.path().c_str(), 0777);
  for (const Reader& reader : readers) {
    for (PathKind kind : kKinds) {
      std::string path = MakePath(dir, kind);
      int answer = kind == kUnreadable && testing::RunningAsRoot()
                       ? RunUnprivileged([&] { return reader.read(path.c_str()) & 0xff; })
                       : reader.read(path.c_str()) & 0xff;
      if (reader.want[kind] != -99) {
        EXPECT_EQ(answer, reader.want[kind] & 0xff)
            << reader.name << " of a " << kKindNames[kind] << " path";
      }
      testing::RemoveTree(path);
    }
  }
}

// The WAIS template read from the current directory: missing, a directory,
// binary.
TEST(BadPaths, WaisTemplateReaders) {
  ScopedTempDir dir(true);
  IndexField what, url, home, page;
  EXPECT_EQ(GetIndexWhat(what, url, home, page), 0);
  EXPECT_EQ(WriteDefaultURL("", "http://x/"), 0);
  mkdir("wwwwais.cfg", 0755);
  EXPECT_EQ(GetIndexWhat(what, url, home, page), 1);  // opens, reads nothing
  rmdir("wwwwais.cfg");
  WriteFile("wwwwais.cfg", BinaryBytes());
  EXPECT_EQ(GetIndexWhat(what, url, home, page), 1);
  EXPECT_EQ(GetRootDir("/srv"), 1);
  EXPECT_EQ(WriteDefaultURL("", "http://x/"), 1);
}

using BadTemplates = PageTest;

TEST_F(BadTemplates, BinaryBytesAndTextFarBeyondEveryBuffer) {
  const std::string body(300000, 'x');
  struct {
    const char* name;
    std::string in;
    std::string out;  // empty: any page will do
  } cases[] = {
      {"binary", BinaryBytes(), ""},
      {"a line of 300000 bytes", body, body},
      {"a tag of 300000 bytes", "%%PRODUCT." + body + "%%", "%%PRODUCT." + body + "%%"},
      {"an unclosed tag", "a %%PRODUCT." + body, "a %%PRODUCT." + body},
      {"a markup of 300000 bytes", "<p " + body + ">", "<p " + body + ">"},
      {"a comment of 300000 bytes", "<!-- " + body + " -->", "<!-- " + body + " -->"},
      {"a long unclosed markup", "a<p " + body, "a<p " + body},
      {"a marker deep inside a long comment", "<!-- " + body + " PAGEGEN_STORENAME -->", ""},
  };
  for (const auto& c : cases) {
    int rc = -1;
    const std::string page = Parse(c.in, &rc);
    EXPECT_EQ(rc, 0) << c.name;
    // Compared without printing: the texts are far too long for a report.
    EXPECT_TRUE(c.out.empty() || page == c.out)
        << c.name << ": " << page.size() << " bytes written, " << c.out.size() << " wanted";
  }
}

// A product database whose first line is missing or empty: no product has a
// SKU column, so there is no list; a single look-up finds at most a line
// without attributes.
TEST(BadDatabases, ProductDatabaseWithoutNameLine) {
  ScopedTempDir dir(true);
  ASSERT_EQ(InitProdAPI(""), 1);
  TemplateSet set;
  set.default_product_page.push_back({"Standard", "product.html", "", 0});
  for (const char* content : {"", "\n", "\nA1\tShirt\t12\n", "\r\nA1\tShirt\n\nB2\tHat\n"}) {
    WriteFile("products.txt", content);
    SkuList* list = BuildAllSkuList("products.txt", "", "", "", &set, nullptr, nullptr, 0, nullptr);
    EXPECT_EQ(list, nullptr) << content;
    FreeSkuList(list);
    SkuList* one = FindSkuData("A1", "products.txt", "", "", "", &set, nullptr);
    EXPECT_TRUE(one == nullptr || one->record == nullptr || one->record[0].name == nullptr)
        << content;
    FreeSkuList(one);
  }
}

// Whole static runs over a store with one thing wrong: each ends with a clear
// code (or completes) and never crashes or hangs.
TEST(BadStores, EveryRunEndsWithAClearCode) {
  const struct {
    const char* file;  // in the store's directory
    bool remove;
    std::string content;
    int code;
  } cases[] = {
      {"products.adb", true, "", 0},
      {"products.cdb", true, "", -17},  // the shop home page lists the categories
      {"products.cdb", false, "NAME\tBLURB\nTea\tLeaves\n", 0},  // no TILLBOXCATEGORY
      {"products.txt", false, "", 0},
      {"modern/product.html", false, BinaryBytes(), 0},
      {"modern/product.html", false, "fifo", -7},  // every product page fails
      {"products.adb", false, "fifo", 0},
  };
  for (const auto& c : cases) {
    ScopedTempDir dir;
    SampleStore store = InstallSampleStore(dir.path());
    const std::string path = dir.Path("store/") + c.file;
    if (c.remove || c.content == "fifo") std::remove(path.c_str());
    if (c.content == "fifo") {
      mkfifo(path.c_str(), 0644);
    } else if (!c.remove) {
      WriteFile(path, c.content);
    }
    RunOptions options;
    options.timeout_seconds = 20;
    RunResult run = RunProgram(store.StaticRun(), options);
    EXPECT_EQ(run.signal, 0) << c.file;
    EXPECT_EQ(run.exit_code, ExitStatusOf(c.code)) << c.file << "\n" << run.out << run.err;
  }
}

// Product and category names that look like paths name pages inside the
// store's directory, never beside or above it.
TEST(BadStores, PathLikeNamesStayInTheStoresDirectory) {
  ScopedTempDir dir;
  SampleStore store = InstallSampleStore(dir.path());
  WriteFile(dir.Path("store/products.txt"),
            "SKU\tNAME\tPRICE\tTILLBOXCATEGORY\n"
            "../../escaped\tA\t1\t../../category\n"
            "..\\..\\escaped\tB\t1\tLighting\n"
            "/tmp/escaped\tC\t1\t/tmp\n"
            "%2e%2e%2fescaped\tD\t1\tLighting\n");
  RunResult run = RunProgram(store.StaticRun());
  EXPECT_EQ(run.exit_code, 0) << run.out;
  EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"bin", "out", "store", "swish"}));
  EXPECT_EQ(ListDir(store.out), (std::vector<std::string>{"lantern"}));
  EXPECT_FALSE(FileExists("/tmp/escaped"));
  int pages = 0;
  for (const std::string& name : ListDir(store.pages))
    pages += name.starts_with("p-");
  EXPECT_EQ(pages, 4);
}

}  // namespace
}  // namespace storegen
