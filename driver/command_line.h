// The command line and the store configuration keys read while it is parsed.
// Results go into the process-wide PageGenState; the few facts that only
// start-up needs come back in a CommandLine record.
#ifndef STOREGEN_DRIVER_COMMAND_LINE_H_
#define STOREGEN_DRIVER_COMMAND_LINE_H_

#include <string>

namespace storegen {

struct CommandLine {
  bool full_run = true;           // cleared by -d, -f, -s N (N != 0) and SKU words
  bool report = false;            // -b: print "ReturnCode=<n>" before the run ends
  bool out_given = false;         // -o was given
  bool alias_given = false;       // -a was given
  bool single_site_page = false;  // -s with a non-zero number
  std::string store_name;         // short store name derived from -c
  std::string start_dir;          // the directory the program was started in
};

// Parses argv[1] .. argv[argc - 1] strictly from left to right into
// PageGenState and |cl|. A word starting with "-" is an option named by its
// second character (unknown letters and a lone "-" are ignored); any other
// word is a SKU appended to PageGenState.pSkuList. "-c" reads the store
// configuration at once (ReadStoreConfig). Returns 0, or the code the run
// ends with: -3 for a value-taking option standing last, else ReadStoreConfig's
// or -1 when a SKU node cannot be allocated. Messages only in verbose mode.
int ParseCommandLine(int argc, char** argv, CommandLine* cl);

// Handles "-c |cfg|": szConfig, the short store name (the path cut at its
// first ".", from its last separator on, separator included), the index's
// unresolved store configuration path, then the keys AllowPagegen,
// PageGenDynamicProductPages, PageGenDynamicListPages, ShoppingCartDirectory,
// PageGenTmpltSet, StoreDir, ProductDatabase, ProductAPILibrary,
// ProductAPILibConfig and PageGenShopHomePage. Returns 0, -2 (file missing),
// -16 (page generation not allowed), -3 (template set or store directory
// missing) or -1 (out of memory).
int ReadStoreConfig(const char* cfg, CommandLine* cl);

// The short store name of a store configuration path: /shops/acme.cfg gives
// "/acme", acme.cfg gives "acme", /a.b/c.cfg gives "/a".
std::string ShortStoreName(const char* cfg_path);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_COMMAND_LINE_H_
