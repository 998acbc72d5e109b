#include "templateset/admin_messages.h"

namespace storegen {
namespace {

struct Entry {
  int code;
  const char* text;
};

constexpr Entry kMessages[] = {
    {kMsgCannotCreateFile,
     "Could not create the file %s. Check that its directory exists and that the web "
     "server's user may write to it.\n"},
    {kMsgInfoPageProblem,
     "The information page of this template set could not be shown: %s could not be read. "
     "Check the InfoPage line of the template set's configuration file.\n"},
    {kMsgGenSucceeded, "The store's pages were generated successfully."},
    {kMsgGenFailedHeading, "The last generation run reported problems."},
    {kMsgGenFailed, "Page generation did not finish cleanly"},
    {kMsgStoreLinkText, "Visit the store"},
    {kMsgTagRowLabel, "Page"},
    {kMsgTagRowExplanation,
     "These template tags were left as they are, because the page's category has no value "
     "for them."},
    {kMsgPictureRowLabel, "Product"},
    {kMsgGraphicRowExplanation,
     "The product has no picture; the template set's default product picture was shown."},
    {kMsgThumbnailRowExplanation,
     "The product has no thumbnail; the template set's default thumbnail was shown."},
    {kMsgPictureRowExplanation,
     "The product has no picture; the template set's default picture was shown."},
};

// Index: -rc, for rc from 0 down to -19.
constexpr const char* kExplanations[] = {
    /* 0 */
    "The run finished without problems.",
    /* -1 */
    "The page generator ran out of memory. Try again when the server is less busy; if it "
    "keeps happening, the server needs more memory for this store.",
    /* -2 */
    "A file the run needs was not found: the store's configuration file or its product "
    "database. Check the ProductDatabase line of the store's configuration.",
    /* -3 */
    "The run was started with incomplete settings: the store's configuration must name its "
    "template set (PageGenTmpltSet) and its directory (StoreDir), and the run needs an "
    "output directory and a product database or product library.",
    /* -4 */
    "The store's output directory could not be created. Check that the web server's user may "
    "write below the HTML root.",
    /* -5 */
    "The template set's configuration file could not be read. Check that the template set "
    "named by PageGenTmpltSet exists in the template directory and that its .cfg file is not "
    "empty.",
    /* -6 */
    "The product library could not be loaded or started. Check the ProductAPILibrary and "
    "ProductAPILibConfig lines of the store's configuration.",
    /* -7 */
    "A template named by the template set could not be opened. Check the template set's "
    "entries and the template directory (PageGenTemplateDir).",
    /* -8 */
    "A page could not be written. Check that the web server's user may write to the store's "
    "directory below the HTML root, and that the disk is not full.",
    /* -9 */
    "The store's search index could not be set up. Check the search settings of the store "
    "(AllowIndex and the IndexSwishCfg, IndexSwishDir and IndexWaisDir lines).",
    /* -10 */
    "A template could not be read to its end. Check that the template files are complete and "
    "readable.",
    /* -11 */
    "The store's data is incomplete: the category database is empty, or a product belongs to "
    "no category.",
    /* -12 */
    "The pages were written, but the template set's directories or secure files could not be "
    "copied into the store. Check free disk space and write permissions.",
    /* -13 */
    "A page refers to a template that the template set does not list. Check the display names "
    "used by the templates and by the store's configuration.",
    /* -14 */
    "The run stopped because of an unexpected problem (code -14).",
    /* -15 */
    "A product was left out because no template was found for it. Give the product a "
    "TILLBOXTEMPLATE value naming a product page of the template set, or give the template "
    "set a DefaultProductPage.",
    /* -16 */
    "Page generation is not enabled for this store. Set AllowPagegen to yes in the store's "
    "configuration.",
    /* -17 */
    "The store's category database was not found.",
    /* -18 */
    "Some template tags could not be filled in because a category has no value for them. "
    "The pages were written with those tags left as they are; they are listed below.",
    /* -19 */
    "Some products have no picture, so the template set's default picture was shown for them. "
    "They are listed below.",
};

}  // namespace

const char* GetAdminMessage(int code) {
  for (const Entry& e : kMessages) {
    if (e.code == code) return e.text;
  }
  return "";
}

const char* GetResultExplanation(int rc) {
  constexpr int kCount = static_cast<int>(sizeof kExplanations / sizeof kExplanations[0]);
  if (rc > 0 || rc <= -kCount) return nullptr;
  return kExplanations[-rc];
}

}  // namespace storegen
