#include "cgisupport/config_file.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/config_item_list.h"
#include "cgisupport/file_identity.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace std::string_literals;

using testing::ExitStatusOf;
using testing::FileExists;
using testing::ReadFile;
using testing::RunUnprivileged;
using testing::ScopedTempDir;
using testing::WriteFile;

// Lookups in a file holding |content|, into a buffer of |size| bytes that
// starts as "dflt": the key rules, and lines as the line reader cuts them (a
// NUL byte ends a line's text; a line longer than the reader's buffer goes
// on as a line of its own).
TEST(ConfigFileTest, LookupRules) {
  ScopedTempDir dir;
  const std::string path = dir.Path("store.cfg");
  struct Case {
    std::string content;
    const char* key;
    int rc;
    const char* value;
    int size = 64;
    int must_exist = 0;
  } cases[] = {
      {"ShopName\tAcme Tools\n", "ShopName", 1, "Acme Tools"},
      {"shopname\tAcme\n", "SHOPNAME", 1, "Acme"},                 // case ignored
      {"ShopName Acme\n", "ShopName", 0, "dflt"},                  // blank is no separator
      {"\t\tShopName\t\tAcme\tignored\n", "ShopName", 1, "Acme"},  // runs of TABs
      {"ShopName\r\nOther\tx\r\n", "ShopName", 0, "dflt"},         // key without value
      {"ShopName\nShopName\tSecond\nShopName\tThird\n", "ShopName", 1, "Second"},
      {"ShopName\tCRLF\r\n", "ShopName", 1, "CRLF"},
      {"A\t1\nShopName\tlast-no-newline", "ShopName", 1, "last-no-newline"},
      {"#ShopName\tdisabled\n", "ShopName", 0, "dflt"},
      {"", "ShopName", 0, "dflt"},
      {"A\t1\n", "B", -2, "dflt", 64, 1},
      {"Key\tabcdefghij\n", "Key", 1, "abcd", 5},  // cut to the buffer
      {"Key\0x\tv\nKey\tw\n"s, "Key", 1, "w"},
      {"Other\tv\0Key\tz\n"s, "Key", 0, "dflt"},
      {std::string(65535, 'x') + "Key\tsplit\n", "Key", 1, "split"},
      {std::string(65534, 'x') + "\tKey\tnext\n", "Key", 1, "next"},
  };
  for (const auto& c : cases) {
    WriteFile(path, c.content);
    char buf[64] = "dflt";
    std::memset(buf + 5, '#', sizeof buf - 5);
    EXPECT_EQ(GetConfigItem(path.c_str(), c.key, buf, c.size, c.must_exist), c.rc)
        << c.content.substr(0, 20);
    EXPECT_STREQ(buf, c.value) << c.content.substr(0, 20);
    if (c.size == 5) {
      EXPECT_EQ(buf[5], '#');  // nothing written past the buffer
    }
  }
  char buf[8] = "keep";
  EXPECT_EQ(GetConfigItem(dir.Path("none.cfg").c_str(), "A", buf, sizeof buf, 0), -1);
  EXPECT_STREQ(buf, "keep");
}

// Lookups keep the values of an unchanged file. Whatever changes the file
// must be seen by the very next lookup: a file just written (whose times
// may not move on a second write within the same clock tick) as well as one
// whose last change is long past.
TEST(ConfigFileCache, EveryChangeIsSeenByTheNextLookup) {
  ScopedTempDir dir;
  struct Case {
    const char* name;
    std::function<void(const std::string& path)> change;
    int rc;
    const char* value;
  } cases[] = {
      {"same size in place", [](const std::string& p) { WriteFile(p, "Key\ttwo\n"); }, 1, "two"},
      {"renamed over",
       [](const std::string& p) {
         WriteFile(p + ".new", "Key\tsix\n");
         ASSERT_EQ(std::rename((p + ".new").c_str(), p.c_str()), 0);
       },
       1, "six"},
      {"own rewrite",
       [](const std::string& p) {
         ConfigItemList* list = CIL_CreateList();
         CIL_AddItem(list, "Key", "ten");
         EXPECT_EQ(SetConfigItems(p.c_str(), list), 0);
         CIL_FreeList(list);
       },
       1, "ten"},
      {"removed", [](const std::string& p) { std::remove(p.c_str()); }, -1, "dflt"},
  };
  auto lookup = [](const std::string& path, std::string* value) {
    char buf[16] = "dflt";
    int rc = GetConfigItem(path.c_str(), "Key", buf, sizeof buf, 0);
    *value = buf;
    return rc;
  };
  for (bool settled : {false, true}) {
    for (std::size_t i = 0; i < std::size(cases); ++i)
      WriteFile(dir.Path(std::to_string(i) + ".cfg"), "Key\tone\n");
    // The files' last change long past any clock tick, or just now.
    g_settle_clock_ahead = settled ? 3 : 0;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
      const Case& c = cases[i];
      std::string path = dir.Path(std::to_string(i) + ".cfg"), value;
      ASSERT_EQ(lookup(path, &value), 1);
      ASSERT_EQ(lookup(path, &value), 1);
      EXPECT_EQ(value, "one");
      c.change(path);
      EXPECT_EQ(lookup(path, &value), c.rc) << c.name << (settled ? ", settled" : "");
      EXPECT_EQ(value, c.value) << c.name << (settled ? ", settled" : "");
    }
  }
  g_settle_clock_ahead = 0;
}

// A page is written under a snapshot: one version of each file throughout
// the page, except for the program's own rewrites; the next page, and every
// lookup outside a snapshot, sees the file as it is.
TEST(ConfigFileCache, SnapshotKeepsOneVersionExceptOwnRewrites) {
  ScopedTempDir dir;
  const std::string path = dir.Path("store.cfg");
  auto value = [&path] {
    std::string v = "none";
    GetConfigValue(path.c_str(), "Key", &v, 0);
    return v;
  };
  WriteFile(path, "Key\tone\n");
  {
    ConfigSnapshot page;
    EXPECT_EQ(value(), "one");
    WriteFile(path, "Key\ttwo\n");
    EXPECT_EQ(value(), "one");
    {
      ConfigSnapshot nested_page;
      EXPECT_EQ(value(), "two");
    }
    ConfigItemList* list = CIL_CreateList();
    CIL_AddItem(list, "Key", "three");
    EXPECT_EQ(SetConfigItems(path.c_str(), list), 0);
    CIL_FreeList(list);
    EXPECT_EQ(value(), "three");
  }
  WriteFile(path, "Key\tfour\n");
  EXPECT_EQ(value(), "four");
}

// A watch tells whether the values its lookups saw are still what lookups
// would see: any change to a file it looked at, a file dropped or rewritten,
// or a file that cannot be kept, and it says no.
TEST(ConfigFileCache, WatchSeesEveryChangeToTheFilesItsLookupsRead) {
  ScopedTempDir dir;
  const std::string path = dir.Path("store.cfg");
  const std::string other = dir.Path("cart.cfg");
  WriteFile(path, "Key\tone\n");
  WriteFile(other, "Key\tx\n");
  std::string v;
  // A watch whose lookups read nothing anew: the file was looked at before.
  auto watched = [&](const std::string& file) {
    GetConfigValue(file.c_str(), "Key", &v, 0);
    auto watch = std::make_unique<ConfigWatch>();
    ConfigSnapshot page;
    GetConfigValue(file.c_str(), "Key", &v, 0);
    watch->Stop();
    return watch;
  };
  auto unchanged = [](const ConfigWatch& watch) {
    ConfigSnapshot next_page;
    return watch.Unchanged();
  };

  GetConfigValue(other.c_str(), "Key", &v, 0);
  auto watch = watched(path);
  EXPECT_TRUE(unchanged(*watch));
  WriteFile(path, "Key\tone\n");  // rewritten with the same bytes
  EXPECT_TRUE(unchanged(*watch));
  GetConfigValue(other.c_str(), "Key", &v, 0);  // another file the cache keeps
  EXPECT_TRUE(unchanged(*watch));
  WriteFile(path, "Key\ttwo\n");
  EXPECT_FALSE(unchanged(*watch));

  watch = watched(path);
  ForgetConfigFile(path.c_str());
  EXPECT_FALSE(unchanged(*watch));

  watch = watched(dir.Path("missing.cfg"));
  EXPECT_FALSE(unchanged(*watch));

  // Still recording: nothing is known yet.
  ConfigWatch open;
  EXPECT_FALSE(open.Unchanged());
}

// The same path names another file once the current directory changes.
TEST(ConfigFileCache, RelativePathFollowsTheCurrentDirectory) {
  ScopedTempDir a(true);
  WriteFile("store.cfg", "Key\ta\n");
  char buf[8] = "";
  EXPECT_EQ(GetConfigItem("store.cfg", "Key", buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "a");
  ScopedTempDir b(true);
  WriteFile("store.cfg", "Key\tb\n");
  EXPECT_EQ(GetConfigItem("store.cfg", "Key", buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "b");
}

TEST(BackupFile, NamesAndMoves) {
  ScopedTempDir dir;
  EXPECT_EQ(BackupFile(dir.Path("absent.cfg").c_str(), nullptr), 0);

  WriteFile(dir.Path("store.cfg"), "new");
  WriteFile(dir.Path("store.bak"), "old backup");
  char name[256] = "";
  EXPECT_EQ(BackupFile(dir.Path("store.cfg").c_str(), name), 1);
  EXPECT_EQ(std::string(name), dir.Path("store.bak"));
  EXPECT_FALSE(FileExists(dir.Path("store.cfg")));
  EXPECT_EQ(ReadFile(dir.Path("store.bak")), "new");

  WriteFile(dir.Path("a.b/list"), "x");
  EXPECT_EQ(BackupFile(dir.Path("a.b/list").c_str(), name), 1);
  EXPECT_EQ(std::string(name), dir.Path("a.b/list.bak"));
}

class SetConfigItemsTest : public ::testing::Test {
 protected:
  void SetUp() override { list_ = CIL_CreateList(); }
  void TearDown() override { CIL_FreeList(list_); }

  ScopedTempDir dir_;
  std::string path_ = dir_.Path("store.cfg");
  ConfigItemList* list_ = nullptr;
};

TEST_F(SetConfigItemsTest, ReplacesDeletesAppendsAndKeepsBackup) {
  const std::string old = "ShopName\tOld\nkeep this line\n\nerrorpage\tx\nErrorPage\ty\nOther\tz\n";
  WriteFile(path_, old);
  CIL_AddItem(list_, "ShopName", "New Name");
  CIL_AddItem(list_, "ErrorPage", "");  // deletes every ErrorPage line
  CIL_AddItem(list_, "Added", "value");
  CIL_AddItem(list_, "NotWritten", nullptr);  // no value: nothing appended
  EXPECT_EQ(SetConfigItems(path_.c_str(), list_), 0);
  EXPECT_EQ(ReadFile(path_), "ShopName\tNew Name\nkeep this line\n\nOther\tz\nAdded\tvalue\n");
  EXPECT_EQ(ReadFile(dir_.Path("store.bak")), old);
  for (ConfigItem* it = list_->first; it != nullptr; it = it->next)
    EXPECT_EQ(it->written, 0);
}

// A key on several lines is replaced on each; appended items start on a
// line of their own, and a new file with an empty line; a NUL byte in a line
// no longer ends the copied line, line feed and all, merging the next line
// into it.
TEST_F(SetConfigItemsTest, LinesAroundTheChangedOnes) {
  struct Case {
    std::string old;  // "-": no file
    const char* key;
    const char* value;
    std::string expected;
  } cases[] = {
      {"Key\t1\nKey\t2\n", "KEY", "3", "KEY\t3\nKEY\t3\n"},
      {"A\t1", "B", "2", "A\t1\nB\t2\n"},
      {"-", "B", "2", "\nB\t2\n"},
      {"Odd\tx\0y\nKeep\tme\n"s, "Added", "1", "Odd\tx\0y\nKeep\tme\nAdded\t1\n"s},
  };
  for (const auto& c : cases) {
    std::remove(path_.c_str());
    std::remove(dir_.Path("store.bak").c_str());
    if (c.old != "-") WriteFile(path_, c.old);
    ConfigItemList* list = CIL_CreateList();
    CIL_AddItem(list, c.key, c.value);
    EXPECT_EQ(SetConfigItems(path_.c_str(), list), 0);
    CIL_FreeList(list);
    EXPECT_EQ(ReadFile(path_), c.expected);
    EXPECT_EQ(FileExists(dir_.Path("store.bak")), c.old != "-");
  }
}

TEST_F(SetConfigItemsTest, NullListAndKeepsPermissions) {
  EXPECT_EQ(SetConfigItems(path_.c_str(), nullptr), -5);
  WriteFile(path_, "A\t1\n");
  chmod(path_.c_str(), 0640);
  CIL_AddItem(list_, "A", "2");
  EXPECT_EQ(SetConfigItems(path_.c_str(), list_), 0);
  struct stat st;
  ASSERT_EQ(stat(path_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST_F(SetConfigItemsTest, FailuresNeverLoseTheOldFile) {
  const std::string old = "A\t1\nB\t2\n";
  CIL_AddItem(list_, "A", "changed");

  // No backup can be made: the backup name is taken by a directory.
  WriteFile(path_, old);
  WriteFile(dir_.Path("store.bak/occupied"), "x");
  EXPECT_EQ(SetConfigItems(path_.c_str(), list_), -3);
  EXPECT_EQ(ReadFile(path_), old);

  // The directory of a new file does not exist.
  EXPECT_EQ(SetConfigItems(dir_.Path("missing/store.cfg").c_str(), list_), -2);

  // An unwritable directory, as a user that permission bits apply to.
  testing::RemoveTree(dir_.Path("store.bak"));
  chmod(dir_.path().c_str(), 0777);
  chmod(path_.c_str(), 0666);
  WriteFile(dir_.Path("ro/store.cfg"), old);
  chmod(dir_.Path("ro/store.cfg").c_str(), 0666);
  chmod(dir_.Path("ro").c_str(), 0555);
  std::string ro = dir_.Path("ro/store.cfg");
  int rc = RunUnprivileged([&] { return SetConfigItems(ro.c_str(), list_); });
  EXPECT_EQ(rc, ExitStatusOf(-3));
  EXPECT_EQ(ReadFile(ro), old);
  chmod(dir_.Path("ro").c_str(), 0755);
}

TEST(EnsurePGPDir, MakesTheDirectoryOfAFilePath) {
  ScopedTempDir dir;
  EXPECT_EQ(EnsurePGPDir(dir.Path("a/b\\c/file.tmp").c_str()), 0);
  EXPECT_TRUE(FileExists(dir.Path("a/b/c")));
  EXPECT_EQ(EnsurePGPDir("file-without-directory"), 0);
}

}  // namespace
}  // namespace storegen
