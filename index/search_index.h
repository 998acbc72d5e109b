// The store's full-text search: the per-store index state, its set-up before
// a run (the WAIS gateway and SWISH configuration files) and its shut-down
// after one (the indexer run), and the index message texts. Process-wide
// state; not reentrant.
#ifndef STOREGEN_INDEX_SEARCH_INDEX_H_
#define STOREGEN_INDEX_SEARCH_INDEX_H_

namespace storegen {

// Settings that start-up hands to the index before it is opened: the store
// configuration path as given at "-c" (unresolved), and the four index keys
// of the store configuration (read only when indexing is enabled).
struct IndexSettings {
  char store_config[256];
  char swish_cfg[256];   // IndexSwishCfg
  char swish_dir[256];   // IndexSwishDir, ends in a separator when set
  char wais_dir[256];    // IndexWaisDir, ends in a separator when set
  char icon_dir[256];    // IndexIconDir
};
IndexSettings& GetIndexSettings();

// Prepares the store's index from the current directory (the program's):
// writes "../swish/<store>.wcf" from "wwwwais.cfg" and the SWISH
// configuration from "../swish/swish.cfg". |store_name| is the store's short
// name, |html_out_dir| the store directory below the HTML root, |alias| the
// HTML root's URL alias, |root_dir| the HTML root. 1 on success, 0 on failure
// (the failing step printed its message when verbose).
int InitIndex(const char* store_name, const char* html_out_dir, const char* alias,
              const char* root_dir);
// The same set-up without writing any file.
int InitIndexNoCreate(const char* store_name, const char* html_out_dir, const char* alias,
                      const char* root_dir);
// Runs the indexer; nothing unless initialised.
void ShutdownIndex();
// Does nothing.
void ShutdownIndexNoCreate();

// The search page's output file as the index sees it, or null before
// initialisation.
const char* GetIndexHtmlOut();
// The search program's URL for this store, or null before initialisation.
const char* GetIndexSelfURL();

// The text of an index message; "" for codes it does not know. Never null.
const char* GetMessageStr(int code);

// Removes everything up to and including the first occurrence of the
// document root in |path| (in place); leaves other paths alone.
void ApplySourceRule(char* path);

}  // namespace storegen

#endif  // STOREGEN_INDEX_SEARCH_INDEX_H_
