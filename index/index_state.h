// The search index's process-wide state record and its fixed vocabulary,
// shared by the set-up entry points and the file writers of this module. One
// instance, no allocation; not reentrant.
#ifndef STOREGEN_INDEX_INDEX_STATE_H_
#define STOREGEN_INDEX_INDEX_STATE_H_

#include <cstddef>

namespace storegen {

// Size of every text field of the index state, of every line of the index
// files, and of the buffers the file writers and line builders fill.
inline constexpr std::size_t kIndexFieldSize = 256;
using IndexField = char[kIndexFieldSize];

struct IndexState {
  int Init;                   // 1 once InitIndex or InitIndexNoCreate succeeded
  int nNewStore;              // 1 when the store's ".wcf" did not exist at set-up
  IndexField szCFG;           // "../swish/" + store name + ".wcf"
  IndexField szCurDir;        // working directory at set-up; the indexer runs there
  IndexField szIndexWhat;     // "IndexWhat" of the WAIS template
  IndexField gszSelfURL;      // the search program's URL for this store
  IndexField gszHtmlOut;      // the search page's output file as the index sees it
  IndexField gszRootDir;      // document root, set when the template has source rules
  IndexField gszCgiBin;       // "Cgi-Bin" of the WAIS template, default "cgi-bin"
  IndexField gszMasterList;   // the master list of stores (computed, never written)
  IndexField gszMasterTemp;   // its temporary copy
  IndexField gszWaisDir;      // "../wais/" when the template has source rules
  IndexField szExeExtension;  // "ExeExtension" of the WAIS template, default "exe"
};

// The process-wide record (zero until set up).
IndexState& GetIndexState();
// Puts the record and the settings of GetIndexSettings back in their start
// state.
void ResetIndexState();

// Files and directories, relative to the program's directory.
inline constexpr char lpWaisCfg[] = "wwwwais.cfg";
inline constexpr char lpSwishCfg[] = "../swish/swish.cfg";
inline constexpr char lpSwishDir[] = "../swish/";
inline constexpr char lpWaisDir[] = "../wais/";
inline constexpr char lpIconDir[] = "/wais/icons";
inline constexpr char lpStoreCFG[] = "tbstore.cfg";
inline constexpr char lpMasterList[] = "masterls.htm";
inline constexpr char lpMasterTemp[] = "masterls.tmp";

// Separators between a key and its value; a written line uses the blank.
inline constexpr char lpTS[] = "\t ";

// Keys of the WAIS template and the store's ".wcf" file.
inline constexpr char lpCgiBin[] = "Cgi-Bin";
inline constexpr char lpExeExtension[] = "ExeExtension";
inline constexpr char lpSelfURL[] = "SelfURL";
inline constexpr char lpSwishSource[] = "SwishSource";
inline constexpr char lpSourceRules[] = "SourceRules";
inline constexpr char lpSwishBin[] = "SwishBin";
inline constexpr char lpStoreGenURL[] = "StoreGenURL";
inline constexpr char lpIconUrl[] = "IconUrl";
inline constexpr char lpPageTitle[] = "PageTitle";
inline constexpr char lpIndexWhat[] = "IndexWhat";
inline constexpr char lpDefaultURL[] = "DefaultURL";
inline constexpr char lpHomePage[] = "HomePage";
inline constexpr char lpIndexPage[] = "IndexPage";
inline constexpr char lpWebURL[] = "WebURL";
inline constexpr char lpStoreDir[] = "StoreDir";
// Keys of the SWISH template.
inline constexpr char lpIndexDir[] = "IndexDir";
inline constexpr char lpIndexFile[] = "IndexFile";

// Codes of the index messages (texts through GetMessageStr).
enum IndexMessage {
  kMsgIndexWhatDefault = 9001,  // empty
  kMsgStoreIndex = 9002,
  kMsgReplace = 9003,
  kMsgSearch = 9007,
  kMsgNoWaisTemplate = 9014,
  kMsgNoWaisCfg = 9015,
  kMsgNoCfg = 9016,
  kMsgNoTempFile = 9017,
  kMsgNoDefaultURL = 9018,
  kMsgNoSwishTemplate = 9019,
  kMsgNoSwishCfg = 9020,
  kMsgForkFailed = 9022,  // empty
  kMsgExecFailed = 9023,  // empty
  kMsgNoMasterList = 9045,
};

}  // namespace storegen

#endif  // STOREGEN_INDEX_INDEX_STATE_H_
