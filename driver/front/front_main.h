// storegen-cgi: the front through which a web server serves the pages a
// store makes on request. It parses the request (dynamic_request.h), looks
// the store up among those its configuration file names, and runs the page
// generator with arguments it builds itself, without a shell, passing the
// page on. Anything else gets a 4xx answer and starts nothing.
//
// Its configuration file, "storegen-cgi.cfg" beside the program (or the file
// named by STOREGEN_CGI_CONFIG), is described in front_config.h; it must name
// the StoregenProgram.
#ifndef STOREGEN_DRIVER_FRONT_FRONT_MAIN_H_
#define STOREGEN_DRIVER_FRONT_FRONT_MAIN_H_

namespace storegen {

// Answers one CGI request on standard output; returns the exit status (0).
int FrontMain(int argc, char** argv);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_FRONT_FRONT_MAIN_H_
