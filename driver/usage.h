// What the program says about itself: the banner, the usage lines, and the
// answers to "--help" and "--version".
#ifndef STOREGEN_DRIVER_USAGE_H_
#define STOREGEN_DRIVER_USAGE_H_

#include <string>

namespace storegen {

// The banner "\n<exe> (c)<years> <maker> version <version>\n"; the verbose
// form is followed by an empty line.
void PrintBanner(const std::string& exe, bool verbose_form);

// The three usage lines under "Usage:".
void Usage(const std::string& exe);

// "--help" and "--version" as the only argument: prints the help text (the
// usage with every option explained) or the banner's version line to
// standard output and returns true; false for any other command line.
bool AnswerHelpOrVersion(int argc, char** argv, const std::string& exe);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_USAGE_H_
