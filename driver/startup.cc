#include "driver/startup.h"

#include <cstdio>
#include <cstring>

namespace storegen {
namespace {

constexpr char kVersion[] = "4.2.0.9";
constexpr char kYears[] = "2025-2026";
constexpr char kMaker[] = "The storegen developers";

void Usage() {
  std::printf(
      "Usage:\n"
      "  static run:                storegen [-v] -o OutPath -c Cfg [-s num] [-a Alias] [sku [sku [...]]]\n"
      "  dynamic product page:      storegen -c Cfg -p sku\n"
      "  dynamic product list page: storegen -c Cfg [-t Tmplt] [-C Cat] -f First\n");
}

}  // namespace

int PageGenMain(int argc, char** argv) {
  const char* name = argv[0];
  if (const char* slash = std::strrchr(name, '/')) name = slash + 1;
  if (argc < 2) {
    std::printf("\n%s (c)%s %s %s %s\n", name, kYears, kMaker, "version", kVersion);
    Usage();
    return 0;
  }
  Usage();
  return 0;
}

}  // namespace storegen
