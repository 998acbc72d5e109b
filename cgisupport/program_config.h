// The own configuration file of a CGI program of the system (storegen-admin,
// storegen-cgi): "key<TAB>value" lines like every configuration file, with
// relative paths taken from the file's own directory.
#ifndef STOREGEN_CGISUPPORT_PROGRAM_CONFIG_H_
#define STOREGEN_CGISUPPORT_PROGRAM_CONFIG_H_

#include <string>

namespace storegen {

class ProgramConfig {
 public:
  // The file named by the environment variable |env_var| when it is set and
  // not empty (a web server may set it), else |file_name| in the directory of
  // the program |argv0| (the current directory when it names none).
  static std::string Locate(const char* argv0, const char* file_name, const char* env_var);

  explicit ProgramConfig(std::string path);

  const std::string& path() const { return path_; }
  // False when the file cannot be read.
  bool Readable() const;
  // The value of |key|; empty when the key is absent.
  std::string Value(const char* key) const;
  // The value of |key| as a path: made absolute against the file's
  // directory, "." and ".." folded, trailing separators removed; empty when
  // the key is absent.
  std::string PathValue(const char* key) const;

 private:
  std::string path_;
  std::string base_;  // the file's directory, absolute, ending in '/'
};

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_PROGRAM_CONFIG_H_
