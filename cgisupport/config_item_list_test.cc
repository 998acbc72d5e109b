#include "cgisupport/config_item_list.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

// Names of the list in order, joined by ",".
std::string Names(const ConfigItemList* list) {
  std::string out;
  for (const ConfigItem* it = list->first; it != nullptr; it = it->next)
    out += std::string(out.empty() ? "" : ",") + (it->name != nullptr ? it->name : "(null)");
  return out;
}

std::string Stdout(void (*fn)(), int times) {
  ::testing::internal::CaptureStdout();
  for (int i = 0; i < times; ++i)
    fn();
  return ::testing::internal::GetCapturedStdout();
}

TEST(ConfigItemList, FromFileKeepsPairsInOrderWithDuplicates) {
  testing::ScopedTempDir dir;
  testing::WriteFile(dir.Path("set.cfg"), "SitePage\ta\r\nnovalue\n\nSitePage\tb\nKey Value\n");
  ConfigItemList* list = CIL_CreateListFromFile(dir.Path("set.cfg").c_str());
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(Names(list), "SitePage,SitePage");
  EXPECT_EQ(CIL_CreateListFromFile(dir.Path("none.cfg").c_str()), nullptr);
  CIL_FreeList(list);
}

TEST(ConfigItemList, GetAndSetIgnoreCaseAndCutToTheBuffer) {
  ConfigItemList* list = CIL_CreateList();
  CIL_AddItem(list, "Color", "red");
  CIL_AddItem(list, "Empty", nullptr);
  EXPECT_EQ(CIL_SetItem(list, "COLOR", "blue"), 1);
  EXPECT_EQ(CIL_SetItem(list, "Size", "L"), 1);
  EXPECT_EQ(Names(list), "Color,Empty,Size");

  char buf[4] = "xx";
  EXPECT_EQ(CIL_GetItem(list, "color", buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "blu");
  EXPECT_EQ(CIL_GetItem(list, "empty", buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "");
  std::strcpy(buf, "xx");
  EXPECT_EQ(CIL_GetItem(list, "none", buf, sizeof buf, 1), -2);
  EXPECT_EQ(CIL_GetItem(list, "none", buf, sizeof buf, 0), 0);
  EXPECT_STREQ(buf, "xx");
  EXPECT_EQ(CIL_GetItem(nullptr, "none", buf, sizeof buf, 0), -1);
  char* value = nullptr;
  EXPECT_EQ(CIL_GetItemValueP(list, "missing", &value, 0), 0);
  EXPECT_STREQ(value, "");
  EXPECT_EQ(CIL_GetItemValueP(list, "Empty", &value, 0), 1);
  EXPECT_EQ(value, nullptr);
  CIL_FreeList(list);
}

TEST(ConfigItemList, AddAtStartLeavesTheTailLinkAlone) {
  ConfigItemList* list = CIL_CreateList();
  CIL_AddItem(list, "b", "2");
  CIL_AddItemAtStart(list, "a", "1");
  CIL_AddItem(list, "c", "3");
  EXPECT_EQ(Names(list), "a,b,c");
  CIL_FreeList(list);
  // On a list that is empty at that moment, the next append replaces it.
  list = CIL_CreateList();
  CIL_AddItemAtStart(list, "lost", "1");
  CIL_AddItem(list, "kept", "2");
  EXPECT_EQ(Names(list), "kept");
  EXPECT_EQ(list->count, 2);
  CIL_FreeList(list);
}

TEST(ConfigItemList, NestedWalksWithPushAndPop) {
  ConfigItemList* outer = CIL_CreateList();
  ConfigItemList* inner = CIL_CreateList();
  CIL_AddItem(outer, "o1", "1");
  CIL_AddItem(outer, "o2", "2");
  CIL_AddItem(inner, "i1", "x");
  std::string seen;
  char *name, *value;
  for (int more = CIL_GetNextNVP(outer, &name, &value); more;
       more = CIL_GetNextNVP(nullptr, &name, &value)) {
    seen += name;
    CIL_PushGetNextNVP();
    for (int m = CIL_GetNextNVP(inner, &name, nullptr); m;
         m = CIL_GetNextNVP(nullptr, &name, nullptr))
      seen += name;
    CIL_PopGetNextNVP();
  }
  EXPECT_EQ(seen, "o1i1o2i1");
  EXPECT_EQ(CIL_GetNextNVP(nullptr, &name, &value), 0);  // cursor is past the end
  CIL_FreeList(outer);
  CIL_FreeList(inner);
}

TEST(ConfigItemList, CursorStackReportsOverflowAndUnderflow) {
  EXPECT_EQ(Stdout(CIL_PushGetNextNVP, 9), "");
  // The tenth fills the last slot and reports; the eleventh is not stored.
  EXPECT_EQ(Stdout(CIL_PushGetNextNVP, 2),
            "CIL_Next:Stack exceeded - 10CIL_Next:Stack exceeded - 10");
  EXPECT_EQ(Stdout(CIL_PopGetNextNVP, 11), "");
  EXPECT_EQ(Stdout(CIL_PopGetNextNVP, 1), "CIL_Next:Stack empty");
}

}  // namespace
}  // namespace storegen
