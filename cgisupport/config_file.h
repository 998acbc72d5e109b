// Key/value configuration files: "key<TAB>value" lines.
//
// Line format shared by the store configuration, the template-set
// configuration and the small files the page generators rewrite: tokens are
// split at TAB, CR and LF (a blank belongs to keys and values), the first
// token is the key (compared without regard to ASCII case), the second the
// value; a line without a value defines nothing. There is no comment syntax.
//
// Every lookup sees the file as it is at that moment (an edit is seen by the
// next lookup; see ConfigSnapshot for the one exception), but an unchanged
// file is not read again: lookups keep each file's values while its device,
// inode, size and times stay the same, and compare the bytes of a file
// changed within the last two seconds. What lookups keep, with the open
// snapshots and watches, is one process-wide cache owned by this module: it
// exists from before main until after the exit handlers, and
// ResetConfigCache empties it. Not reentrant.
#ifndef STOREGEN_CGISUPPORT_CONFIG_FILE_H_
#define STOREGEN_CGISUPPORT_CONFIG_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace storegen {

struct ConfigItemList;

// Looks |key| up in |file| (case ignored; the first line with a value wins).
// Returns 1 and copies the value into |value_buf|, cut to buf_size - 1 bytes
// and terminated (the buffer's last byte is always set to NUL); 0 when no line
// has a value (-2 if |must_exist| is 1); -1 when the file cannot be opened.
// On every result but 1, |value_buf| is left untouched.
int GetConfigItem(const char* file, const char* key, char* value_buf, int buf_size, int must_exist);

// GetConfigItem for callers that want the whole value: 1 and the value in
// *value; 0 (or -2 when |must_exist| is 1) when no line has a value, and -1
// when the file cannot be opened, *value being untouched on those.
int GetConfigValue(const char* file, std::string_view key, std::string* value, int must_exist);

// While a snapshot is open, each file is looked at once: the first lookup in
// it checks the file as usual, later ones answer from what it found. A page
// is written under a snapshot, so that everything on it comes from one
// version of each file, and so that a page costs one look at the store
// configuration however many values it shows. The rewrites of this module
// and ForgetConfigFile take effect at once, snapshot or not. Snapshots nest;
// each one starts afresh.
class ConfigSnapshot {
 public:
  ConfigSnapshot();
  ~ConfigSnapshot();
  ConfigSnapshot(const ConfigSnapshot&) = delete;
  ConfigSnapshot& operator=(const ConfigSnapshot&) = delete;
};

// Tells whether lookups would still answer as they did while the watch was
// recording: for output made from configuration values that is worth
// reusing while the files are unchanged. Watches nest; each records the
// lookups made while it runs.
class ConfigWatch {
 public:
  ConfigWatch();  // starts recording
  ~ConfigWatch();
  ConfigWatch(const ConfigWatch&) = delete;
  ConfigWatch& operator=(const ConfigWatch&) = delete;
  // Stops recording.
  void Stop();
  // True after Stop when every file looked up while recording is (by a look
  // under the current snapshot) the version those lookups saw, and every
  // value was answered from kept values of one version of its file.
  bool Unchanged() const;
  // True while any watch records: output reused instead of made again would
  // escape its record.
  static bool Recording();

 private:
  ConfigWatch* outer_;
  std::vector<std::string> files_;
  uint64_t start_;
  uint64_t stop_ = 0;
  bool recording_ = true;
  friend void NoteConfigLookup(const char* file);
};

// Drops what lookups keep of |file|, so that the next lookup reads it again.
// The rewrites of this module call it; a writer of a configuration file by
// other means may.
void ForgetConfigFile(const char* file);

// Puts the configuration cache back in its start state: nothing kept, no
// snapshot or watch open. For a process that serves one request after
// another; call it only between them, when no ConfigSnapshot or ConfigWatch
// is alive.
void ResetConfigCache();

// Moves |path| to its backup name (the extension of its last component
// replaced by ".bak", or ".bak" appended), removing an older backup first.
// Returns 0 when |path| does not exist, 1 after the move (the backup name is
// copied into |backup_name_out|, 256 bytes, when it is not null), -1 when the
// rename fails.
int BackupFile(const char* path, char* backup_name_out);

// Rewrites |file| so that it holds the pairs of |list|: a listed key's lines
// are replaced (or dropped when the value is null or empty), other lines kept,
// unlisted pairs appended. The old file is kept as its ".bak" backup. Returns
// 0 done, -5 null list, -3 backup failed, -1 backup unreadable, -2 |file| not
// creatable; every failure leaves the old content in |file|.
int SetConfigItems(const char* file, ConfigItemList* list);

// Creates the directory part of |file_path| (mode 0755, parents included).
// Returns the result of tb_mkdir; a path without a separator does nothing and
// returns 0.
int EnsurePGPDir(const char* file_path);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CONFIG_FILE_H_
