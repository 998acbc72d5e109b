// Result codes shared by the page generators, the driver and the run report.
// The numbers are part of the program's interface (exit status, "pgstatus.log",
// the error list) and never change.
#ifndef STOREGEN_CGISUPPORT_RESULT_CODES_H_
#define STOREGEN_CGISUPPORT_RESULT_CODES_H_

namespace storegen {

enum ResultCode : int {
  kOk = 0,
  kOutOfMemory = -1,
  kFileNotFound = -2,
  kBadCommandLine = -3,
  kDirNotCreatable = -4,
  kTemplateSetFailed = -5,
  kProductApiFailed = -6,
  kTemplateNotOpenable = -7,
  kOutputNotCreatable = -8,
  kIndexNotSetUp = -9,
  kTemplateReadError = -10,
  kDatabaseError = -11,  // empty category database, product without category
  kCopyFailed = -12,
  kTemplateEntryNotFound = -13,
  kNoTemplateForProduct = -15,
  kGeneratorNotEnabled = -16,
  kNoCategoryDatabase = -17,
  kUnresolvedCategoryTag = -18,  // warning: the page is finished
  kDefaultPictureUsed = -19,     // warning: recorded, never returned
  kAlreadyRunning = -50,
  kTagsNestedTooDeeply = -50,
};

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_RESULT_CODES_H_
