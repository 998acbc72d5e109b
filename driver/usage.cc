#include "driver/usage.h"

#include <cstdio>
#include <cstring>

#include "cgisupport/misc_util.h"

namespace storegen {
namespace {

constexpr char kYears[] = "2025-2026";
constexpr char kMaker[] = "The storegen developers";

constexpr char kOptions[] =
    "\n"
    "Options (an option is known by the letter after its \"-\"; -c reads the store\n"
    "configuration at once, so options that change messages, -v and -b, go first):\n"
    "  -c Cfg      the store configuration file\n"
    "  -o OutPath  the web server's document root; pages go to OutPath followed by\n"
    "              the store's StoreDir\n"
    "  -a Alias    the URL path under which OutPath is served, when it is not \"/\"\n"
    "  -s num      also the site pages: 0 writes the whole store, N only site page N\n"
    "  sku ...     only these products' pages\n"
    "  -d          only copy the template set's directories and secure files\n"
    "  -p          one product page, to standard output\n"
    "  -f First    one product list page from product First (0: the first page)\n"
    "  -C Cat      the category of a list page: the words up to the next option\n"
    "  -t Tmplt    the template of a list page\n"
    "  -v          banner, progress and messages on standard output\n"
    "  -b          standard output to pgstatus.log, ending with ReturnCode=N\n"
    "  --help      this text\n"
    "  --version   the version line\n"
    "\n"
    "The program works in its own directory: relative paths on the command line\n"
    "and in the store configuration are taken from there, not from the current\n"
    "directory. Without -v, errors and warnings go to standard error, naming the\n"
    "file and line that caused them. The exit status is 0, or 256 plus the\n"
    "run's negative result (253 is -3).\n"
    "\n"
    "Reference: man storegen; docs/ in storegen's source tree.\n";

}  // namespace

void PrintBanner(const std::string& exe, bool verbose_form) {
  std::printf("\n%s (c)%s %s %s %s\n%s", exe.c_str(), kYears, kMaker, "version",
              GetTillboxVersion(), verbose_form ? "\n" : "");
}

void Usage(const std::string& exe) {
  const char* name = exe.c_str();
  std::printf("Usage:\n");
  std::printf("  %s [-v] -o OutPath -c Cfg [-s num] [-a Alias] [sku [sku [...]]]\n", name);
  std::printf("  %s -c Cfg -p sku\n", name);
  std::printf("  %s -c Cfg [-t Tmplt] [-C Cat] -f First\n", name);
}

bool AnswerHelpOrVersion(int argc, char** argv, const std::string& exe) {
  if (argc != 2) return false;
  if (std::strcmp(argv[1], "--version") == 0) {
    std::printf("%s (c)%s %s %s %s\n", exe.c_str(), kYears, kMaker, "version", GetTillboxVersion());
    return true;
  }
  if (std::strcmp(argv[1], "--help") != 0) return false;
  std::printf(
      "%s writes an on-line store's pages from its configuration, databases and\n"
      "templates.\n\n",
      exe.c_str());
  Usage(exe);
  std::fputs(kOptions, stdout);
  return true;
}

}  // namespace storegen
