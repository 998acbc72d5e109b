// storegen-admin: the management CGI program. A web server runs it for the
// store-management screens; it shows a template set's information page,
// starts a static generation run of a store in the background, and reports
// whether a run is under way or how the last one ended.
//
// Requests name stores and template sets only; the program looks them up in
// the directories of its own configuration file (admin_config.h) and runs
// nothing but the configured page generator with arguments it builds itself.
#ifndef STOREGEN_DRIVER_ADMIN_ADMIN_MAIN_H_
#define STOREGEN_DRIVER_ADMIN_ADMIN_MAIN_H_

namespace storegen {

// The request parameters.
inline constexpr char kActionParam[] = "action";  // "info", "generate" or "status"
inline constexpr char kStoreParam[] = "store";    // a store's name
inline constexpr char kSetParam[] = "set";        // a template set's name

// Answers one CGI request on standard output. Returns the exit status (0);
// a request that starts a generation run does not return (the answer is
// complete and the process ends once the run is launched).
int AdminMain(int argc, char** argv);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_ADMIN_ADMIN_MAIN_H_
