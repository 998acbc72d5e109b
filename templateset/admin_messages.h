// Texts of the store-management pages (template-set information page and the
// report of a generation run), looked up by number. Plain English for a store
// administrator; texts that take an argument say so next to their number.
#ifndef STOREGEN_TEMPLATESET_ADMIN_MESSAGES_H_
#define STOREGEN_TEMPLATESET_ADMIN_MESSAGES_H_

namespace storegen {

enum AdminMessage : int {
  kMsgCannotCreateFile = 3002,    // printf format, one %s: the file's path
  kMsgInfoPageProblem = 18009,    // printf format, one %s: the page's path
  kMsgGenSucceeded = 18010,       // heading of a run that succeeded
  kMsgGenFailedHeading = 18011,   // heading of a failed run (detail flag)
  kMsgGenFailed = 18012,          // followed by ": " and the explanation
  kMsgStoreLinkText = 18013,      // text of the link to the store
  kMsgTagRowLabel = 18014,        // label of the page in an unresolved-tag row
  kMsgTagRowExplanation = 18015,  // explanation of an unresolved-tag row
  kMsgPictureRowLabel = 18016,    // label of the product in a missing-picture row
  kMsgGraphicRowExplanation = 18017,
  kMsgThumbnailRowExplanation = 18018,
  kMsgPictureRowExplanation = 18019,  // a missing picture of unknown kind
};

// The text of |code|; "" for a code the catalogue does not know. Never null.
const char* GetAdminMessage(int code);

// What result code |rc| of a generation run means, for codes -19 to 0; null
// for any other code (the report then prints the number).
const char* GetResultExplanation(int rc);

}  // namespace storegen

#endif  // STOREGEN_TEMPLATESET_ADMIN_MESSAGES_H_
