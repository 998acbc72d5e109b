// The search index's files and indexer run: the store's WAIS gateway
// configuration (".wcf") written from the WAIS template "wwwwais.cfg", the
// store's SWISH configuration (".scf") written from "../swish/swish.cfg", the
// settings read from the WAIS template, and the run of the SWISH indexer.
// Every path is relative to the current directory (the program's directory
// during set-up and shut-down). Lines of the templates are read in pieces of
// at most 255 bytes, without their line end; every line written ends in LF.
// Messages are printed only in verbose mode. Uses and fills the index state
// (index/index_state.h); not reentrant.
#ifndef STOREGEN_INDEX_INDEX_FILES_H_
#define STOREGEN_INDEX_INDEX_FILES_H_

#include "index/index_state.h"

namespace storegen {

// Reads the WAIS template's settings into the index state: "Cgi-Bin" (default
// "cgi-bin"); with a "SourceRules" line that has a quoted argument, the
// document root becomes |root_arg| and the WAIS directory and master-list
// paths are set, else all four stay empty. Returns 1, or 0 when the template
// cannot be opened (message 9014).
int GetRootDir(const char* root_arg);

// Reads "IndexWhat", "DefaultURL", "HomePage" and "IndexPage" of the WAIS
// template into the four buffers (each emptied first; a value is its first
// word with one trailing separator removed) and "ExeExtension" into the index
// state ("exe" when the line is missing, empty when it has no value). Returns
// 1, or 0 when the template cannot be opened (message 9016).
int GetIndexWhat(IndexField& what, IndexField& default_url, IndexField& home_page,
                 IndexField& index_page);

// Writes the store's WAIS configuration |wcf_path| from the WAIS template:
// comments and lines without a word dropped, the seven generated keys
// replaced by the line builders below, the four template-only keys dropped,
// other lines copied, then "WebURL" and "StoreDir" appended. |new_page| gets
// the search page's path when that file does not exist yet, else "". Returns
// 1, or 0 when the template cannot be read (9014) or the file not created or
// not completely written (9015). The file is replaced whole: after a failure
// a previous file at |wcf_path| stays as it was.
int CreateWaisCfg(const char* wcf_path, const char* wcf_name, const char* out_dir,
                  const char* web_url, IndexField& new_page, const char* alias);

// With an empty |new_page|, rewrites the WAIS template in place (through
// "wwwwais.TMP" and a rename) with its "DefaultURL" line set to
// |default_url| and every other line unchanged; with a non-empty one does
// nothing. Returns 1, or 0 when the template cannot be read (9016), the
// temporary file not created (9017) or not renamed into place (9018; the
// temporary file stays).
int WriteDefaultURL(const char* new_page, const char* default_url);

// Writes the store's SWISH configuration (GetSwishCFGName of |wcf_path|) from
// "../swish/swish.cfg": lines without a word dropped, "IndexDir" and
// "IndexFile" replaced, every other line (comments included) copied. Returns
// 1, or 0 when the template cannot be read (9019) or the file not created or
// not completely written (9020 with its name; a previous file stays as it
// was).
int CreateSwishCfg(const char* wcf_path, const char* out_dir, const char* alias);

// Line builders: each overwrites |line| with key, blank and value (cut to the
// field size). SetSelfURL also fills the state's SelfURL; SetPageTitle the
// state's HtmlOut and |new_page| (the page path when it does not exist yet,
// else ""). Arguments marked unused in the file writers' calls are accepted
// for symmetry with them.
void SetSelfURL(IndexField& line, const char* wcf_name, const char* alias);
void SetSwishSource(IndexField& line, const char* wcf_path);
void SetSwishBin(IndexField& line);
void SetStoreGenURL(IndexField& line);
void SetSourceRules(IndexField& line, const char* web_url, const char* alias);
void SetIconUrl(IndexField& line, const char* web_url);
void SetPageTitle(IndexField& line, IndexField& new_page, const char* wcf_name, const char* out_dir,
                  const char* alias);
void SetIndexDir(IndexField& line, const char* out_dir, const char* alias);
void SetIndexFile(IndexField& line, const char* wcf_path);

// The store's SWISH configuration ("scf") and index ("ind") names: |wcf_path|
// with the text after the last "." of its file name replaced; a file name
// without "." is kept as it is.
void GetSwishCFGName(IndexField& out, const char* wcf_path);
void GetSwishIndexName(IndexField& out, const char* wcf_path);

// URL-escapes a relative path into |out| (cut to the field size): letters,
// digits and "/~_-*" stay, a pair of dots becomes "%2E%2E", a single dot
// stays unless it ends the path (then it is dropped), every other byte
// becomes "%XX".
void escape_relative_path_URL(const char* in, IndexField& out);

// Removes one trailing '\\', '/', LF or CR from a text of at least two bytes.
// It has a namespace of its own: the product reader's TrimEnd (every trailing
// CR and LF, storedata/product_db.h) shares its name and signature, and a
// program links both.
namespace index_files {
void TrimEnd(char* s);
}  // namespace index_files

// Runs "../swish/swish" (plus "." and the extension when there is one) with
// "-c" and the store's SWISH configuration; for a store whose
// "PageGenDynamicProductPages" (read from |store_config|) begins with "y",
// also "-s" |store_config| and the "-d", "-L", "-a" pairs of its non-empty
// product settings. The child's input is closed at once and its output read
// and discarded; the call returns when the child has ended. Returns 1 when
// the indexer was started, 0 when the pipes or the fork failed.
int ExecSwish(const char* store_config);

// Keeps the master list of stores as it is; returns 1.
int UpdateMasterList(const char* store);

}  // namespace storegen

#endif  // STOREGEN_INDEX_INDEX_FILES_H_
