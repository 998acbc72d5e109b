// Path and name helpers: resolving paths, the executable's and the cart's
// program names, the web server's HTML root from CGI variables, safe names.
#ifndef STOREGEN_CGISUPPORT_PATH_UTIL_H_
#define STOREGEN_CGISUPPORT_PATH_UTIL_H_

#include <cstddef>

namespace storegen {

// Makes |path| absolute in place: a relative path is joined to the current
// directory; '\\' counts as a separator; repeated separators, "." and ".."
// are folded lexically (no symbolic link is followed, the path need not
// exist); the result is cut to limit - 1 bytes. An empty path stays empty.
// Returns |path|.
char* ResolvePath(char* path, int limit);

// Copies into |dst| the part of |path| after its last '/' (if none, after its
// last '\\'; if neither, the whole path), cut to dst_size - 1. Returns dst.
char* GetExeName(const char* path, char* dst, int dst_size);

// The cart's main program file name: key "TillboxName" (default "Tillbox")
// then key "TillboxExtension" (default ".exe", a "." put in front when it has
// none), read from |config_file|. Copied into |dst| cut to dst_size - 1.
// Returns dst.
char* GetTillboxName(const char* config_file, char* dst, int dst_size);

// Copies the CGI variable PATH_INFO into |dst| with every '\\' turned into
// '/'; empty when unset.
void GetPathInfo(char* dst, std::size_t dst_size);

// The web server's document root and its URL alias, from PATH_TRANSLATED and
// PATH_INFO: the longest run of whole trailing components the two share is
// stripped; what is left of PATH_TRANSLATED is the root, what is left of
// PATH_INFO the alias (possibly empty); neither keeps a trailing separator.
// Return 1 on success; 0 when either variable is unset or empty, leaving
// |dst| untouched.
int GetHTMLRoot(char* dst, std::size_t dst_size);
int GetHTMLRootAlias(char* dst, std::size_t dst_size);

// Builds a file name of letters, digits, '-' and '_' from arbitrary text:
// |prefix|, the escaped bytes of |src| (CR and LF dropped), then |suffix|
// (cut to fit). Distinct inputs give distinct names. |dst| is always
// terminated within |dst_size|. Returns dst.
char* GetSafeFileName(const char* src, char* dst, int dst_size, const char* prefix,
                      const char* suffix);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_PATH_UTIL_H_
