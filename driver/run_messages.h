// The driver's messages. Start-up's errors print, with "-v", the words the
// program has always printed on standard output, and without "-v" a line on
// standard error that names the file (and line) at fault and says what to
// do. The summaries of a run's end exist on standard error only.
#ifndef STOREGEN_DRIVER_RUN_MESSAGES_H_
#define STOREGEN_DRIVER_RUN_MESSAGES_H_

#include <string>

namespace storegen {

struct FileList;

// An option that needs a value stands last.
void ReportMissingValue(const char* option);

// The store configuration |resolved| (from |given| on the command line)
// does not exist; |start_dir| is the directory the program was started in.
void ReportStoreConfigNotFound(const char* given, const char* resolved,
                               const std::string& start_dir);

// AllowPagegen of |cfg| is missing or says no.
void ReportGeneratorNotAllowed(const char* cfg);

// The required |key| has no value in |cfg|.
void ReportMissingKey(const char* cfg, const char* key);

// "-p" without a SKU.
void ReportSkuRequired();

// The product database |db| named by |cfg| does not exist.
void ReportDatabaseNotFound(const char* db, const char* cfg);

// What a run lacks among: the output root of a static run, a product
// database or library, the store configuration, the store directory.
void ReportMissingSettings(bool no_output_root, bool no_products, bool no_config, bool no_store_dir,
                           const char* cfg);

// The store's output directory |dir| cannot be made (|error|: errno).
void ReportOutputDirFailed(const char* dir, int error);

// The template set |set_cfg| named by |cfg| cannot be loaded.
void ReportTemplateSetFailed(const char* set_cfg, const char* cfg);

// One line per code of the error list |errlist|: how many entries have it,
// what it means and what to do.
void ExplainErrorList(const FileList* errlist);

// A run that ends with the non-zero result |code|: the exit status the shell
// shows, and what the result means. Nothing for 0.
void ReportRunEnd(int code);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_RUN_MESSAGES_H_
