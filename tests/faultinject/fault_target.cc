// Performs one rewrite of a file that storegen keeps, for the fault-injection
// test: fault_target <what> <directory>, where <what> is
//   config    SetConfigItems on store.cfg (one key replaced, one dropped, one added)
//   attrdb    the attribute database store.adb read, edited and written at close
//   wais      the WAIS template wwwwais.cfg given a new DefaultURL
//   filelist  the generated-file list Xzq3Jpo9 replaced by 600 page names
// and prints the routine's result.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "index/index_files.h"
#include "pagegen/filelist/file_list.h"
#include "storedata/attribute_db.h"

int main(int argc, char** argv) {
  using namespace storegen;
  if (argc != 3 || chdir(argv[2]) != 0) {
    std::fprintf(stderr, "usage: fault_target config|attrdb|wais|filelist DIR\n");
    return 2;
  }
  std::string what = argv[1];
  int result = 0;
  if (what == "config") {
    ConfigItemList* list = CIL_CreateList();
    CIL_AddItem(list, "ShopName", "The New Corner Shop");
    CIL_AddItem(list, "ErrorPage", "");
    CIL_AddItem(list, "PageGenShopHomeListTplt", "basic/list.html");
    result = SetConfigItems("store.cfg", list);
    CIL_FreeList(list);
  } else if (what == "attrdb") {
    AttributePool* pool = AD_InitAttributePool("store.adb");
    int32_t material = AD_AddAttributeLabel(pool, "Material", 1);
    AD_AddAttributeValue(pool, material, "cotton");
    AD_AddAttributeValue(pool, material, "wool, fine");
    AD_DeleteAttributeValue(pool, 1, 2);
    AD_SetAttributeName(pool, 2, "Colour");
    result = AD_ShutdownAttributePool(pool);
  } else if (what == "wais") {
    // A long URL, so that the rewrite takes another write than a copy would.
    result = WriteDefaultURL(
        "", ("http://www.example.com/shop/" + std::string(200, 's') + "/search.html").c_str());
  } else if (what == "filelist") {
    // Enough pages that the list takes several writes.
    FileList* list = nullptr;
    for (int i = 0; i < 600; ++i)
      FileListAdd(&list, ("/srv/www/shop/p-SKU" + std::to_string(i) + ".html").c_str(), 0);
    BeginFileList("Xzq3Jpo9", ".", true);
    result = FinishFileList(list, ListEnd::kReplace) ? 0 : -8;
    FreeFileList(list);
  } else {
    return 2;
  }
  std::printf("%d\n", result);
  return 0;
}
