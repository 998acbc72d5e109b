#include "storedata/attribute_db.h"

#include <sys/stat.h>

#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storedata/attribute_pool.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::WriteFile;

std::string Take(char* copy) {
  std::string text = copy != nullptr ? copy : "<null>";
  std::free(copy);
  return text;
}

std::string ValueAt(AttributePool* pool, int32_t index, int32_t position) {
  const char* value = AD_GetAttributeValuePTR(pool, index, position);
  return value != nullptr ? value : "<null>";
}

class AttributeDbTest : public ::testing::Test {
 protected:
  // Writes |content| (unless null) as the database and opens it.
  AttributePool* Open(const char* content) {
    if (content != nullptr) WriteFile(path_, content);
    return AD_InitAttributePool(path_.c_str());
  }

  testing::ScopedTempDir dir_;
  std::string path_ = dir_.Path("shop.adb");
};

TEST(AttributeValueList, SplitsAtCommasAndKeepsEscapedOnes) {
  const struct {
    const char* field;
    std::list<std::string> values;
  } cases[] = {{"red,green,blue", {"red", "green", "blue"}},
               {"a\\,,b", {"a,,b"}},  // the byte after an escaped comma never separates
               {"red,", {"red", ""}},
               {"", {}}};
  for (const auto& c : cases)
    EXPECT_EQ(ParseValueList(c.field), c.values) << c.field;
}

TEST_F(AttributeDbTest, ReadsEditsAndWritesInIndexOrder) {
  // Unsorted, CR LF endings, an empty line, an escaped comma, a trailing comma.
  AttributePool* pool = Open(
      "3\t1\tColour\tred\\,green,blue\r\n\r\n1\t1\tSize\tS,M,L\n2\t5\tEngraving\t\n"
      "5\t3\tFit\tslim,\n");
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(AD_GetAttributeIndex(pool, "Colour"), 3);
  EXPECT_EQ(AD_GetAttributeIndex(pool, "colour"), 0);
  EXPECT_EQ(AD_GetAttributeType(pool, 2), 5);
  EXPECT_EQ(ValueAt(pool, 3, 1), "red,green");
  EXPECT_EQ(ValueAt(pool, 5, 2), "");
  EXPECT_EQ(ValueAt(pool, 5, 3), "<null>");
  EXPECT_EQ(AD_GetAttributeOffset(pool, 1, "L"), 3);
  EXPECT_EQ(Take(AD_GetAttributeLabel(pool, 2)), "Engraving");
  EXPECT_EQ(Take(AD_GetAttributeLabel(pool, 4)), "<null>");

  // An emptied value keeps its position and is the next one filled.
  EXPECT_EQ(AD_DeleteAttributeValue(pool, 1, 2), 1);
  EXPECT_EQ(AD_AddAttributeValue(pool, 1, "XL"), 1);
  EXPECT_EQ(AD_AddAttributeValue(pool, 1, "XL"), 0);
  EXPECT_EQ(AD_AddAttributeValue(pool, 1, "XXL"), 1);
  EXPECT_EQ(AD_AddAttributeLabel(pool, "Colour", 1), 0);
  EXPECT_EQ(AD_AddAttributeLabel(pool, "colour", 7), 4);  // labels are case-sensitive
  EXPECT_EQ(AD_AddAttributeValue(pool, 4, "a,b"), 1);
  EXPECT_EQ(AD_SetAttributeType(pool, 2, 2), 1);
  EXPECT_EQ(AD_SetAttributeValue(pool, 3, 2, "navy"), 1);
  EXPECT_EQ(AD_SetAttributeName(pool, 5, "Cut"), 1);
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 9), 0);
  EXPECT_EQ(AD_ShutdownAttributePool(pool), 1);
  EXPECT_EQ(ReadFile(path_),
            "1\t1\tSize\tS,XL,L,XXL\n2\t2\tEngraving\t\n3\t1\tColour\tred\\,green,navy\n"
            "4\t7\tcolour\ta\\,b\n5\t3\tCut\tslim,\n");

  // What was written reads back the same.
  pool = Open(nullptr);
  EXPECT_EQ(ValueAt(pool, 4, 1), "a,b");
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 4), 1);
  EXPECT_EQ(AD_ShutdownAttributePool(pool), 1);
  EXPECT_EQ(ReadFile(path_).find("colour"), std::string::npos);
}

TEST_F(AttributeDbTest, EqualIndicesAreKeptNewestFirst) {
  // Read out of order: an index read again goes in front of the earlier one,
  // and look-ups by index find the front one until it is deleted.
  AttributePool* pool = Open("3\t1\tC\t\n1\t1\tA1\t\n3\t2\tC2\t\n1\t1\tA2\tx\n2\t1\tB\t\n");
  std::vector<std::string> labels;
  for (const char* l = AD_GetNextAttributeLabelPTR(pool); l != nullptr;
       l = AD_GetNextAttributeLabelPTR(nullptr))
    labels.push_back(l);
  EXPECT_EQ(labels, (std::vector<std::string>{"A2", "A1", "B", "C2", "C"}));
  EXPECT_EQ(Take(AD_GetAttributeLabel(pool, 1)), "A2");
  EXPECT_EQ(AD_GetAttributeType(pool, 3), 2);
  EXPECT_EQ(AD_GetAttributeIndex(pool, "A1"), 1);
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 3), 1);
  EXPECT_EQ(AD_GetAttributeType(pool, 3), 1);
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 1), 1);
  EXPECT_EQ(ValueAt(pool, 1, 1), "<null>");
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 1), 1);
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 1), 0);
  EXPECT_EQ(AD_AddAttributeLabel(pool, "A3", 4), 1);
  EXPECT_EQ(AD_ShutdownAttributePool(pool), 1);
  EXPECT_EQ(ReadFile(path_), "1\t4\tA3\t\n2\t1\tB\t\n3\t1\tC\t\n");
}

TEST_F(AttributeDbTest, UnchangedOrMissingFileIsNotWritten) {
  AttributePool* pool = Open(nullptr);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(AD_GetNextAttributeLabelPTR(pool), nullptr);
  EXPECT_EQ(AD_ShutdownAttributePool(pool), 1);
  EXPECT_FALSE(FileExists(path_));
  // Fields run together, so a line without index would be dropped by a write.
  EXPECT_EQ(AD_ShutdownAttributePool(Open("1\t1\tSize\tS\n\tno index\n")), 1);
  EXPECT_EQ(ReadFile(path_), "1\t1\tSize\tS\n\tno index\n");
  EXPECT_EQ(AD_InitAttributePool(nullptr), nullptr);
  EXPECT_EQ(AD_ShutdownAttributePool(nullptr), 0);
}

TEST_F(AttributeDbTest, NewIndexFillsTheFirstGapOfTheLeadingRun) {
  const struct {
    const char* file;
    int32_t expected;
  } cases[] = {{"2\t1\tB\t\n3\t1\tC\t\n", 1},
               {"1\t1\tA\t\n2\t1\tB\t\n4\t1\tD\t\n", 3},
               {"1\t1\tA\t\n2\t1\tB\t\n", 3}};
  for (const auto& c : cases) {
    AttributePool* pool = Open(c.file);
    EXPECT_EQ(AD_AddAttributeLabel(pool, "New", 1), c.expected) << c.file;
    AD_ShutdownAttributePool(pool);
  }
}

TEST_F(AttributeDbTest, NextLabelCursorsAreIndependent) {
  AttributePool* pool = Open("1\t1\tA\t\n2\n3\t1\tC\t\n");
  EXPECT_STREQ(AD_GetNextAttributeLabelPTR(pool), "A");
  EXPECT_EQ(Take(AD_GetNextAttributeLabel(pool)), "A");
  EXPECT_STREQ(AD_GetNextAttributeLabelPTR(nullptr), "");  // index 2 has no label
  EXPECT_EQ(AD_DeleteAttributeLabel(pool, 3), 1);          // the PTR cursor's next one
  EXPECT_EQ(AD_GetNextAttributeLabelPTR(nullptr), nullptr);
  EXPECT_EQ(Take(AD_GetNextAttributeLabel(nullptr)), "");
  EXPECT_EQ(Take(AD_GetNextAttributeLabel(nullptr)), "<null>");
  AD_ShutdownAttributePool(pool);
  EXPECT_EQ(AD_GetNextAttributeLabelPTR(nullptr), nullptr);
}

TEST_F(AttributeDbTest, FailedWriteKeepsTheOldFile) {
  chmod(dir_.path().c_str(), 0755);  // readable, but not writable, for the child
  WriteFile(path_, "1\t1\tSize\tS\n");
  chmod(path_.c_str(), 0666);
  int result = testing::RunUnprivileged([&] {
    AttributePool* pool = Open(nullptr);
    if (AD_AddAttributeValue(pool, 1, "M") != 1) return 2;
    return AD_ShutdownAttributePool(pool);
  });
  EXPECT_EQ(result, testing::RunningAsRoot() ? 0 : 1);
  if (testing::RunningAsRoot()) {
    EXPECT_EQ(ReadFile(path_), "1\t1\tSize\tS\n");
    EXPECT_EQ(testing::ListDir(dir_.path()), std::vector<std::string>{"shop.adb"});
  }
}

TEST_F(AttributeDbTest, LineReaderDropsCarriageReturnsAndReadsAnyLength) {
  std::string long_line(2500, 'x');
  WriteFile(path_, "a\rb\r\n" + long_line + "\nlast");
  FILE* fp = std::fopen(path_.c_str(), "rb");
  ASSERT_NE(fp, nullptr);
  char* line = nullptr;
  std::vector<std::string> lines;
  while (tb_fgets(&line, fp) != nullptr) {
    lines.push_back(line);
    std::free(line);
  }
  std::fclose(fp);
  EXPECT_EQ(line, nullptr);
  EXPECT_EQ(lines, (std::vector<std::string>{"ab\n", long_line + "\n", "last"}));
}

TEST_F(AttributeDbTest, FileNamesFollowTheProductDatabase) {
  const struct {
    const char* config;
    const char* db;
    const char* work;
  } cases[] = {{"productdatabase\tdata/shop.txt\n", "data/shop.adb", "data/shop.ad_"},
               {"ProductDatabase\ta.b\n", "a.b.adb", "a.b.ad_"},
               {"StoreName\tx\n", "untouched", "untouched"}};
  std::string config = dir_.Path("store.cfg");
  for (const auto& c : cases) {
    WriteFile(config, c.config);
    char db[256] = "untouched";
    char work[256] = "untouched";
    EXPECT_EQ(AttributeFileName(config.c_str(), db, work, sizeof db), 0);
    EXPECT_STREQ(db, c.db) << c.config;
    EXPECT_STREQ(work, c.work) << c.config;
  }
  WriteFile(config, "ProductDatabase\tdata/shop.txt\n");
  char db[8];
  char work[8];
  AttributeFileName(config.c_str(), db, work, sizeof db);
  EXPECT_STREQ(db, "data/sh");
  EXPECT_STREQ(work, "data/s_");
}

TEST_F(AttributeDbTest, WorkingCopyIsMadeOnlyWhenAsked) {
  std::string work = dir_.Path("shop.ad_");
  WriteFile(path_, "1\t1\tSize\tS\n");
  AttributePool* pool = OpenAttributeDataSource(nullptr, 0, path_.c_str(), work.c_str());
  EXPECT_EQ(AD_GetAttributeIndex(pool, "Size"), 1);
  AD_ShutdownAttributePool(pool);
  EXPECT_FALSE(FileExists(work));

  pool = OpenAttributeDataSource(nullptr, 1, path_.c_str(), work.c_str());
  AD_AddAttributeLabel(pool, "Colour", 1);
  EXPECT_EQ(AD_ShutdownAttributePool(pool), 1);
  EXPECT_EQ(ReadFile(path_), "1\t1\tSize\tS\n");
  EXPECT_EQ(ReadFile(work), "1\t1\tSize\tS\n2\t1\tColour\t\n");
  pool = OpenAttributeDataSource(nullptr, 0, path_.c_str(), work.c_str());  // the copy is read
  EXPECT_EQ(AD_GetAttributeIndex(pool, "Colour"), 2);
  AD_ShutdownAttributePool(pool);
  EXPECT_EQ(iCopyFile(dir_.Path("absent").c_str(), work.c_str()), 1);
}

}  // namespace
}  // namespace storegen
