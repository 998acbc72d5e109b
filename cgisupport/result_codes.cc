#include "cgisupport/result_codes.h"

#include <iterator>

namespace storegen {
namespace {

// One row per code. |cause| reads as the end of "The run ended with -N:"
// and of "An error-list entry with -N:" alike unless |entry| says what an
// entry means; |remedy| says what to do.
constexpr ResultMeaning kMeanings[] = {
    {kOk, "the run succeeded", nullptr, nullptr},
    {kOutOfMemory, "the program ran out of memory", nullptr,
     "free memory, or generate the store in parts (-s, SKU arguments)"},
    {kFileNotFound,
     "a file the run needs does not exist: the store configuration (-c) or the product "
     "database (ProductDatabase); for -p, the product is not in the database",
     nullptr,
     "check the path the message names; relative paths are taken from the program's "
     "directory, not from the current directory"},
    {kBadCommandLine,
     "the command line or the store configuration is incomplete: an option without its "
     "value, -p without a SKU, a static run without -o, or a missing PageGenTmpltSet, "
     "StoreDir, or ProductDatabase/ProductAPILibrary",
     nullptr, "run storegen --help, and add what the message names"},
    {kDirNotCreatable,
     "the store's output directory (-o followed by StoreDir) could not be created", nullptr,
     "check that the output root exists and that the program may write to it"},
    {kTemplateSetFailed,
     "the template-set configuration (PageGenTmpltSet followed by .cfg, in the template "
     "directory) could not be read, is empty, or defines nothing",
     nullptr,
     "check PageGenTmpltSet and PageGenTemplateDir in the store configuration, and the "
     "set's key<TAB>value lines"},
    {kProductApiFailed,
     "the product library (ProductAPILibrary) could not be loaded or lacks one of its six "
     "entry points",
     nullptr,
     "check the library's path (relative paths are taken from the program's directory) "
     "and that it exports every PAPI_ entry point"},
    {kTemplateNotOpenable, "a page's template could not be opened",
     "the page named was not written: its template could not be opened",
     "check the template paths of the template-set configuration; relative ones are taken "
     "from the template directory (PageGenTemplateDir)"},
    {kOutputNotCreatable,
     "a page, a text-block cache or the generated-file list could not be written",
     "the page named could not be written",
     "check that the output directory and the template directory may be written to, and "
     "that the disk has room"},
    {kIndexNotSetUp, "the search index was not set up, so the search page was not written",
     "the search page named was not written: the search index was not set up",
     "check AllowIndex and the Index keys of the store configuration, and wwwwais.cfg in "
     "the program's directory"},
    {kTemplateReadError, "a template could not be read",
     "the page named could not be read from its template", "check the template file and the disk"},
    {kDatabaseError,
     "the category database holds no category, a product of a product list has no "
     "TILLBOXCATEGORY, or the product database was changed in place while the run wrote "
     "its pages",
     nullptr,
     "give the category database (the product database's name with .cdb) at least one "
     "category, and every listed product a TILLBOXCATEGORY column; replace the product "
     "database by renaming a new file into place, not by changing it while a run writes "
     "pages"},
    {kCopyFailed, "copying the template set's directories or the secure files failed", nullptr,
     "check SecureContentPath in the store configuration and that the program may write "
     "there"},
    {kTemplateEntryNotFound,
     "a page the run needs is not in the template set: no entry of that name, or the entry "
     "lacks its template or output file",
     "the page named is not in the template set, or its entry lacks its template or output "
     "file",
     "compare PageGenShopHomePage and the pages the templates link to with the entries of "
     "the template-set configuration"},
    {kNoTemplateForProduct, "a product's page template is empty",
     "the product named has no page: its product-page entry names no template file",
     "give the entry its template file, or correct the product's TILLBOXTEMPLATE"},
    {kGeneratorNotEnabled,
     "the store configuration does not allow page generation (AllowPagegen is missing or "
     "begins with N)",
     nullptr, "add the line AllowPagegen<TAB>Yes to the store configuration"},
    {kNoCategoryDatabase,
     "a template has a category list block, but the store has no category database", nullptr,
     "create the category database beside the product database (its name with .cdb), or "
     "remove the category list from the template"},
    {kUnresolvedCategoryTag,
     "a category tag could not be filled in (the category lacks that column, or its value "
     "is empty or NA); the page was written with the tag as it stands",
     "the tag named could not be filled in for the current category; it was written as it "
     "stands",
     "add the column to the category database, or correct the tag's name"},
    {kDefaultPictureUsed,
     "a product has no picture, so the template set's default picture was used",
     "the tag or product named used the template set's default picture (the product's "
     "GRAPHIC or THUMBNAIL is missing, empty or NA)",
     "give the product a GRAPHIC or THUMBNAIL value"},
    {kAlreadyRunning,
     "another static run holds the run lock (pgstatus.pid in the program's directory), or "
     "templates are nested more than 10000 levels deep",
     "the page named has templates nested more than 10000 levels deep",
     "wait for the other run to end; or look for a template that includes itself through a "
     "list block's CategoryTemplate"},
};

}  // namespace

const ResultMeaning* FindResultMeaning(int code) {
  for (const ResultMeaning& m : kMeanings) {
    if (m.code == code) return &m;
  }
  return nullptr;
}

std::span<const ResultMeaning> AllResultMeanings() {
  return {std::begin(kMeanings), std::end(kMeanings)};
}

}  // namespace storegen
