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
