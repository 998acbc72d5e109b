// The line builders, derived file names and URL escaping of the index files.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "cgisupport/copy_truncated.h"
#include "index/index_files.h"
#include "index/index_lines.h"
#include "index/search_index.h"

namespace storegen {
namespace {

// The blank that separates a written key from its value.
constexpr char kValueSep = lpTS[1];

std::string_view View(const char* s) {
  return s != nullptr ? std::string_view(s) : std::string_view();
}

// |key|, a blank and |value|, into |line|.
void SetKeyLine(IndexField& line, std::string_view key, std::string_view value) {
  std::string text(key);
  text += kValueSep;
  text += value;
  CopyTruncated(line, text);
}

// |path| less |alias| when the alias is not empty and begins the path.
std::string_view WithoutAlias(std::string_view path, std::string_view alias) {
  if (!alias.empty() && path.starts_with(alias)) path.remove_prefix(alias.size());
  return path;
}

// |wcf_path| with the text after the last "." of its file name replaced by
// |extension|.
void ReplaceExtension(IndexField& out, const char* wcf_path, std::string_view extension) {
  std::string_view path = View(wcf_path);
  std::size_t name_start = path.find_last_of("/\\");
  name_start = name_start == std::string_view::npos ? 0 : name_start + 1;
  std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || dot < name_start) {
    CopyTruncated(out, path);
    return;
  }
  std::string name(path.substr(0, dot + 1));
  name += extension;
  CopyTruncated(out, name);
}

bool KeepsInURL(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '/' ||
         c == '~' || c == '_' || c == '-' || c == '*';
}

void AppendEscaped(std::string& out, unsigned char c) {
  char hex[4];
  std::snprintf(hex, sizeof hex, "%%%2.2X", c);
  out += hex;
}

}  // namespace

void escape_relative_path_URL(const char* in, IndexField& out) {
  std::string text;
  bool dot_pending = false;
  for (std::string_view s = View(in); char ch : s) {
    unsigned char c = static_cast<unsigned char>(ch);
    if (KeepsInURL(c)) {
      if (dot_pending) text += '.';
      text += ch;
      dot_pending = false;
    } else if (c == '.' && !dot_pending) {
      dot_pending = true;
    } else if (c == '.') {
      AppendEscaped(text, '.');
      AppendEscaped(text, '.');
      dot_pending = false;
    } else {
      if (dot_pending) text += '.';
      AppendEscaped(text, c);
      dot_pending = false;
    }
  }
  // A dot still pending at the end is dropped.
  CopyTruncated(out, text);
}

void index_files::TrimEnd(char* s) {
  if (s == nullptr) return;
  std::string_view text(s);
  s[TrimEndView(text).size()] = '\0';
}

void GetSwishCFGName(IndexField& out, const char* wcf_path) {
  ReplaceExtension(out, wcf_path, "scf");
}

void GetSwishIndexName(IndexField& out, const char* wcf_path) {
  ReplaceExtension(out, wcf_path, "ind");
}

void SetSelfURL(IndexField& line, const char* wcf_name, const char* /*alias*/) {
  IndexState& st = GetIndexState();
  std::string script = " \"USERPROG#";
  script += st.gszCgiBin;
  script += "/wwwwais";
  if (st.szExeExtension[0] != '\0') {
    script += '.';
    script += st.szExeExtension;
  }
  script += "?configure=";
  IndexField escaped;
  escape_relative_path_URL(wcf_name, escaped);
  CopyTruncated(line, std::string(lpSelfURL) + script + escaped + "\"");
  CopyTruncated(st.gszSelfURL, script.substr(2) + escaped);
}

void SetSwishSource(IndexField& line, const char* wcf_path) {
  IndexField index_name;
  GetSwishIndexName(index_name, wcf_path);
  std::string value = index_name;
  value += kValueSep;
  value += '"';
  value += GetMessageStr(kMsgStoreIndex);
  value += '"';
  SetKeyLine(line, lpSwishSource, value);
}

void SetSwishBin(IndexField& line) {
  const IndexState& st = GetIndexState();
  std::string value = std::string(lpSwishDir) + "swish";
  if (st.szExeExtension[0] != '\0') {
    value += '.';
    value += st.szExeExtension;
  }
  SetKeyLine(line, lpSwishBin, value);
}

void SetStoreGenURL(IndexField& line) {
  const IndexState& st = GetIndexState();
  std::string text = lpStoreGenURL;
  text += " USERPROG#";
  text += st.gszCgiBin;
  text += "/storegen";
  if (st.szExeExtension[0] != '\0') {
    text += '.';
    text += st.szExeExtension;
  }
  text += "?-c+";
  text += lpStoreCFG;
  CopyTruncated(line, text);
}

void SetSourceRules(IndexField& line, const char* /*web_url*/, const char* alias) {
  std::string value = GetMessageStr(kMsgReplace);
  value += kValueSep;
  value += '"';
  value += GetIndexState().gszRootDir;
  value += '"';
  value += kValueSep;
  value += '"';
  value += View(alias);
  value += '"';
  SetKeyLine(line, lpSourceRules, value);
}

void SetIconUrl(IndexField& line, const char* web_url) {
  SetKeyLine(line, lpIconUrl, std::string(View(web_url)) + lpIconDir);
}

void SetPageTitle(IndexField& line, IndexField& new_page, const char* wcf_name, const char* out_dir,
                  const char* alias) {
  IndexState& st = GetIndexState();
  std::string_view dir = WithoutAlias(View(out_dir), View(alias));
  std::string_view name = View(wcf_name);
  std::string page_name(name.substr(0, name.find('.')));
  page_name += ".html";

  std::string page_path = st.gszWaisDir;
  if (!EndsWithDirSlash(page_path)) page_path += '/';
  page_path += page_name;
  SetKeyLine(line, lpPageTitle, page_path);

  IndexField checked;  // the path as it fits the field, as it is written
  CopyTruncated(checked, page_path);
  CopyTruncated(new_page, access(checked, F_OK) != 0 ? std::string_view(checked) : "");

  std::string html_out(dir);
  if (!EndsWithDirSlash(html_out)) html_out += '/';
  std::string_view bare = page_name;
  if (!bare.empty() && IsDirSlash(bare.front())) bare.remove_prefix(1);
  html_out += bare;
  CopyTruncated(st.gszHtmlOut, html_out);
}

void SetIndexDir(IndexField& line, const char* out_dir, const char* alias) {
  std::string_view rest = WithoutAlias(View(out_dir), View(alias));
  if (!rest.empty() && IsDirSlash(rest.front())) rest.remove_prefix(1);
  std::string value = GetIndexState().gszRootDir;
  value += '/';
  value += rest;
  SetKeyLine(line, lpIndexDir, value);
}

void SetIndexFile(IndexField& line, const char* wcf_path) {
  IndexField index_name;
  GetSwishIndexName(index_name, wcf_path);
  SetKeyLine(line, lpIndexFile, index_name);
}

}  // namespace storegen
