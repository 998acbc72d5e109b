// Result codes shared by the page generators, the driver and the run report.
// The numbers are part of the program's interface (exit status, "pgstatus.log",
// the error list) and never change.
#ifndef STOREGEN_CGISUPPORT_RESULT_CODES_H_
#define STOREGEN_CGISUPPORT_RESULT_CODES_H_

#include <span>

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

// What a code means to the person who ran the program, for messages and for
// the user reference. Texts are plain sentences without a final full stop.
struct ResultMeaning {
  int code;
  const char* cause;   // what went wrong, read as the run's result
  const char* entry;   // what an error-list entry with this code says of the
                       // name it shows; null: |cause| says it
  const char* remedy;  // what to do; null for success
};

// The meaning of |code|, or null for a code the program never gives.
const ResultMeaning* FindResultMeaning(int code);

// Every code the program gives, success first, then in descending order.
std::span<const ResultMeaning> AllResultMeanings();

// The process exit status that a run's result |code| becomes (-7 gives 249).
constexpr int ExitStatusFor(int code) {
  return code & 0xFF;
}

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_RESULT_CODES_H_
