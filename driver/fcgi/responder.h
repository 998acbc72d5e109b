// The engine of storegen-fcgi: answers one page request after another in
// this process, each as storegen-cgi and the page generator started for it
// alone would answer it, byte for byte, headers included. What the page
// generator keeps of its files (the store configuration, the templates and
// their pieces, the product reader's kept files) stays loaded between
// requests; each of those checks its file's identity at every use, so a
// changed file is seen by the next request.
#ifndef STOREGEN_DRIVER_FCGI_RESPONDER_H_
#define STOREGEN_DRIVER_FCGI_RESPONDER_H_

#include <string>

#include "driver/front/front_config.h"

namespace storegen {

// One request as the web server hands it over; null for a variable it did
// not set.
struct PageRequest {
  const char* method = nullptr;
  const char* query = nullptr;
  const char* script_name = nullptr;  // the page generator's name as the links call it
};

class Responder {
 public:
  // Answers for the stores of |config| as the page generator |program| would:
  // its directory is the program directory of every request, and its file
  // name the program's name (which the links carry when the store sets no
  // PageGenProg).
  Responder(FrontConfig config, std::string program);
  ~Responder();
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

  // False (with the reason in |*error|) when the page buffer cannot be made.
  bool Open(std::string* error);

  // The answer to |request|, valid until the next call. When the generator
  // failed without writing anything, |*failure| gets a line for the log
  // (else it is emptied).
  const std::string& Answer(const PageRequest& request, std::string* failure);

 private:
  FrontConfig config_;
  std::string program_;
  int page_fd_ = -1;  // what the generator writes to standard output
  std::string answer_;
};

}  // namespace storegen

#endif  // STOREGEN_DRIVER_FCGI_RESPONDER_H_
