// Template sets: the ".cfg" file that lists a set's templates by kind and
// display name, with its set-wide settings. The display-name iteration cursor
// is process-wide; not reentrant.
#ifndef STOREGEN_TEMPLATESET_TEMPLATE_SET_H_
#define STOREGEN_TEMPLATESET_TEMPLATE_SET_H_

#include <cstdint>
#include <string>
#include <vector>

namespace storegen {

// Template kinds, as every lookup names them.
enum TemplateKind : int {
  kKindProductPage = 1,
  kKindSitePage = 2,
  kKindShopHomePage = 3,
  kKindSearchPage = 4,
  kKindDefaultProductPage = 5,
  kKindCartPage = 6,  // "TillboxPage" entries
  kKindSecureFile = 7,
};

struct TemplateNode {
  std::string display_name;   // empty when absent
  std::string template_file;  // empty when absent
  std::string output_file;    // empty when absent
  char flag = 0;              // first character of the fourth field, 0 when absent
};

using TemplateList = std::vector<TemplateNode>;

struct TemplateSet {
  std::string file_name;
  std::string creator_name;
  std::string copyright;
  std::string style_name;
  std::string info_page;
  std::string copy_excludes_dirs;
  std::string default_product_graphic;
  std::string default_product_thumbnail;
  int32_t max_prod_per_page = 0;
  TemplateList product_pages;         // kind 1
  TemplateList default_product_page;  // kind 5
  TemplateList site_pages;            // kind 2
  TemplateList shop_home_pages;       // kind 3
  TemplateList search_page;           // kind 4
  TemplateList cart_pages;            // kind 6
  TemplateList secure_files;          // kind 7
};

// Reads the template-set configuration at |path|. Null when the path is null
// or empty, the file cannot be examined, is a directory, is empty, or holds
// no name/value pair. Free with PG_ShutdownTemplateSet.
TemplateSet* PG_InitTemplateSet(const char* path);
// Releases the set; null is ignored.
void PG_ShutdownTemplateSet(TemplateSet* set);

// Resolves |reference| (a 1-based number, the kind's key word plus a number,
// or anything else for the first entry) to an entry's display name. Returns
// 1 with the name copied into |buf| (cut, terminated), 0 when there is no such
// entry (|buf| untouched).
int PG_TpltGetDisplayName(const TemplateSet* set, const char* reference, char* buf, int size,
                          int kind);
// Iterates one list: a non-null |set| restarts at the head of |kind|'s list,
// null continues. Returns 1 with the display name copied into |buf|, 0 at
// the end.
int PG_TpltGetNextDisplayName(const TemplateSet* set, char* buf, int size, int kind);
// Template file / output file of the entry of |kind| whose display name is
// exactly |display_name|. 1 when the entry exists (the field may be empty),
// 0 when not (|buf| untouched).
int PG_TpltGetTemplateFile(const TemplateSet* set, const char* display_name, char* buf, int size,
                           int kind);
int PG_TpltGetOutputFile(const TemplateSet* set, const char* display_name, char* buf, int size,
                         int kind);
// 1 when the entry exists and is flagged "s"/"S".
int PG_TpltIsSecureFile(const TemplateSet* set, const char* display_name, int kind);
// Adds |file_name| to the secure files unless one has that display name.
// Returns 1.
int PG_TpltAddSecureFile(TemplateSet* set, const char* file_name);
// 0 only when |reference| resolves to a shop home page flagged "n"/"N".
int PG_TpltAreThereProdPages(const TemplateSet* set, const char* reference);
// 1 when |dir_name| is one of the ";"-separated CopyExcludesDirs names.
int PG_TpltIsDirCopyExcluded(const TemplateSet* set, const char* dir_name);
// Diagnostic dump to standard output.
void PrintTemplateSet(const TemplateSet* set);
void PrintTpltList(const TemplateList& list);

}  // namespace storegen

#endif  // STOREGEN_TEMPLATESET_TEMPLATE_SET_H_
