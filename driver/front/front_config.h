// What the fronts of the pages made on request share: their configuration
// file, the answers they give of their own, and the decision on a request
// (an answer of their own, or the page generator's arguments).
//
// The configuration file has "key<TAB>value" lines; relative paths are taken
// from the file's directory:
//   StoregenProgram  the page generator
//   StoreConfigDir   the directory of the store configurations (required)
//   Stores           the configuration file names served, separated by
//                    blanks, commas or semicolons (required)
#ifndef STOREGEN_DRIVER_FRONT_FRONT_CONFIG_H_
#define STOREGEN_DRIVER_FRONT_FRONT_CONFIG_H_

#include <string>
#include <vector>

#include "driver/front/dynamic_request.h"

namespace storegen {

// The exit status of a product request for a product that does not exist.
inline constexpr int kNoSuchProductStatus = 254;

struct FrontConfig {
  std::string storegen;
  std::string store_dir;
  std::vector<std::string> stores;
};

// Reads the configuration at |path|. False, with the reason in |*error|, when
// it cannot be read, a store name is not a plain file name, or a required key
// is missing (StoregenProgram only when |need_program|).
bool LoadFrontConfig(const std::string& path, bool need_program, FrontConfig* config,
                     std::string* error);

// An answer of the front's own: "Status:" and "Content-type:" headers and a
// short page. Nothing of the request is repeated in it.
std::string FrontAnswer(const char* status, const char* text, const char* extra_header = "");
std::string ServerErrorAnswer();
std::string NoSuchProductAnswer();
// 503, for a request whose products could not be read at all.
std::string ProductsUnavailableAnswer();

// What a front does with one request.
struct FrontDecision {
  std::string answer;             // an answer of its own; empty: run the generator
  std::vector<std::string> args;  // the generator's arguments, without the program
  DynamicRequest::Kind kind = DynamicRequest::Kind::kProductPage;
};

// Decides on a request with |method| and |query| (either may be null): 405
// for a method other than GET or HEAD, 400 for a query that is not a dynamic
// request, 404 for a store the configuration does not list or whose file is
// not a regular file; otherwise the generator's arguments.
FrontDecision DecideRequest(const FrontConfig& config, const char* method, const char* query);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_FRONT_FRONT_CONFIG_H_
