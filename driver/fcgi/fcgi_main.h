// storegen-fcgi: a FastCGI responder that answers the links of a store's
// pages made on request ("?-p+-c+lantern.cfg+SKU", "?-c+lantern.cfg+-f+N"),
// each as storegen-cgi would, from processes that stay: the store's files
// stay loaded between requests (see responder.h).
//
// Process model: the page generator keeps its state process-wide, so each
// request is served by one single-threaded worker process. The program
// forks the workers (-w, one per processor by default), which share the
// listening socket, starts a new one when one ends unexpectedly, and on
// SIGTERM, SIGINT or SIGHUP lets each finish the request it serves, then
// ends. The listening socket is standard input, as a web server or
// spawn-fcgi passes it, or the one -s opens.
//
// Its configuration file, "storegen-fcgi.cfg" beside the program (or the
// file named by STOREGEN_FCGI_CONFIG), has the keys of storegen-cgi's (see
// driver/front/front_config.h); StoregenProgram is optional here and names
// the page generator the answers stand for ("storegen" beside this program
// when not set).
#ifndef STOREGEN_DRIVER_FCGI_FCGI_MAIN_H_
#define STOREGEN_DRIVER_FCGI_FCGI_MAIN_H_

namespace storegen {

// Runs the responder; returns the exit status (0 after a clean stop, 1 when
// it cannot start, 2 for a bad command line).
int FcgiMain(int argc, char** argv);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_FCGI_FCGI_MAIN_H_
