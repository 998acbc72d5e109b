// The WAIS template's settings and the writers of the store's WAIS and SWISH
// configuration files.
#include "index/index_files.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "cgisupport/atomic_file.h"
#include "cgisupport/config_line.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"
#include "index/index_lines.h"
#include "index/search_index.h"

namespace storegen {
namespace {

// Message |code| of the catalogue about |file|; the search index is then
// incomplete.
void PrintMessage(int code, const char* file) {
  std::string_view text = GetMessageStr(code);
  if (text.ends_with('\n')) text.remove_suffix(1);
  ReportError({AbsolutePathForMessage(file)},
              std::string(text) + "; the store's search index is not set up completely", "%s",
              GetMessageStr(code));
}

// The value that follows the key on a template line: the next word, with one
// trailing separator removed.
bool NextValue(LineTokenizer& tokens, std::string_view* value) {
  if (!tokens.Next(lpTS, value)) return false;
  *value = TrimEndView(*value);
  return true;
}

// The temporary name of the WAIS template's rewrite: its name cut at the
// first "." plus ".TMP".
std::string WaisTempName() {
  std::string_view name = lpWaisCfg;
  return std::string(name.substr(0, name.find('.'))) + ".TMP";
}

// Calls visit(key, tokens) for each setting line of the WAIS template: its
// comment lines are passed over, the key is the first word with its trailing
// separator removed, and tokens stands after it. Prints `missing` and
// returns false when the template cannot be opened.
template <typename Visit>
bool ForEachTemplateSetting(int missing, Visit visit) {
  FilePtr in(FopenForReading(lpWaisCfg));
  if (!in) {
    PrintMessage(missing, lpWaisCfg);
    return false;
  }
  std::string raw;
  while (ReadIndexLine(in.get(), &raw)) {
    std::string_view line = StripLineEnd(raw);
    if (line.starts_with('#')) continue;
    LineTokenizer tokens(line);
    std::string_view key;
    if (!tokens.Next(lpTS, &key)) continue;
    visit(TrimEndView(key), tokens);
  }
  return true;
}

}  // namespace

int GetRootDir(const char* root_arg) {
  IndexState& st = GetIndexState();
  st.gszRootDir[0] = '\0';
  st.gszWaisDir[0] = '\0';
  st.gszMasterList[0] = '\0';
  st.gszMasterTemp[0] = '\0';
  CopyTruncated(st.gszCgiBin, "cgi-bin");

  bool read =
      ForEachTemplateSetting(kMsgNoWaisTemplate, [&](std::string_view key, LineTokenizer& tokens) {
        std::string_view value;
        if (KeysEqual(key, lpSourceRules)) {
          // Source rules are in use when a quoted argument follows.
          std::string_view quoted;
          if (tokens.Next("\"", &value) && tokens.Next("\"", &quoted)) {
            CopyTruncated(st.gszRootDir, root_arg != nullptr ? root_arg : "");
            CopyTruncated(st.gszWaisDir, lpWaisDir);
            CopyTruncated(st.gszMasterList, std::string(st.gszWaisDir) + lpMasterList);
            CopyTruncated(st.gszMasterTemp, std::string(st.gszWaisDir) + lpMasterTemp);
          }
        } else if (KeysEqual(key, lpCgiBin)) {
          if (tokens.Next("\t", &value)) CopyTruncated(st.gszCgiBin, TrimEndView(value));
        }
      });
  return read ? 1 : 0;
}

int GetIndexWhat(IndexField& what, IndexField& default_url, IndexField& home_page,
                 IndexField& index_page) {
  IndexState& st = GetIndexState();
  CopyTruncated(st.szExeExtension, "exe");
  CopyTruncated(what, GetMessageStr(kMsgIndexWhatDefault));
  default_url[0] = '\0';
  home_page[0] = '\0';
  index_page[0] = '\0';

  bool read = ForEachTemplateSetting(kMsgNoCfg, [&](std::string_view key, LineTokenizer& tokens) {
    std::string_view value;
    if (KeysEqual(key, lpExeExtension)) {
      CopyTruncated(st.szExeExtension, NextValue(tokens, &value) ? value : "");
      return;
    }
    IndexField* target = KeysEqual(key, lpIndexWhat)    ? &what
                         : KeysEqual(key, lpDefaultURL) ? &default_url
                         : KeysEqual(key, lpHomePage)   ? &home_page
                         : KeysEqual(key, lpIndexPage)  ? &index_page
                                                        : nullptr;
    if (target != nullptr && NextValue(tokens, &value)) CopyTruncated(*target, value);
  });
  return read ? 1 : 0;
}

int CreateWaisCfg(const char* wcf_path, const char* wcf_name, const char* out_dir,
                  const char* web_url, IndexField& new_page, const char* alias) {
  FilePtr in(FopenForReading(lpWaisCfg));
  if (!in) {
    PrintMessage(kMsgNoWaisTemplate, lpWaisCfg);
    return 0;
  }
  // The store's file is replaced whole: a failed write leaves the previous
  // one in place for the search gateway.
  AtomicFile out;
  if (!out.Open(wcf_path != nullptr ? wcf_path : "")) {
    PrintMessage(kMsgNoWaisCfg, wcf_path != nullptr ? wcf_path : "");
    return 0;
  }
  std::string raw;
  IndexField built;
  while (ReadIndexLine(in.get(), &raw)) {
    // Comments and empty lines do not reach the store's file.
    if (raw[0] == '#' || raw[0] == '\n' || raw[0] == '\r') continue;
    std::string_view line = StripLineEnd(raw);
    std::string_view key = FirstToken(line);
    if (key.empty()) continue;
    if (KeysEqual(key, lpSelfURL)) {
      SetSelfURL(built, wcf_name, alias);
    } else if (KeysEqual(key, lpSwishSource)) {
      SetSwishSource(built, wcf_path);
    } else if (KeysEqual(key, lpSwishBin)) {
      SetSwishBin(built);
    } else if (KeysEqual(key, lpStoreGenURL)) {
      SetStoreGenURL(built);
    } else if (KeysEqual(key, lpSourceRules)) {
      SetSourceRules(built, web_url, alias);
    } else if (KeysEqual(key, lpIconUrl)) {
      SetIconUrl(built, web_url);
    } else if (KeysEqual(key, lpPageTitle)) {
      SetPageTitle(built, new_page, wcf_name, out_dir, alias);
    } else if (KeysEqual(key, lpIndexWhat) || KeysEqual(key, lpDefaultURL) ||
               KeysEqual(key, lpHomePage) || KeysEqual(key, lpIndexPage)) {
      continue;
    } else {
      WriteLine(out.fp(), line);
      continue;
    }
    WriteLine(out.fp(), built);
  }

  std::string_view store_dir = out_dir != nullptr ? out_dir : "";
  std::string_view alias_text = alias != nullptr ? alias : "";
  if (!alias_text.empty() && store_dir.starts_with(alias_text)) {
    store_dir.remove_prefix(alias_text.size());
  }
  WriteLine(out.fp(), std::string(lpWebURL) + lpTS[1] + (web_url != nullptr ? web_url : ""));
  WriteLine(out.fp(), std::string(lpStoreDir) + lpTS[1] + std::string(store_dir));
  if (!out.Commit()) {
    PrintMessage(kMsgNoWaisCfg, wcf_path != nullptr ? wcf_path : "");
    return 0;
  }
  return 1;
}

int WriteDefaultURL(const char* new_page, const char* default_url) {
  if (new_page != nullptr && new_page[0] != '\0') return 1;
  FilePtr in(FopenForReading(lpWaisCfg));
  if (!in) {
    PrintMessage(kMsgNoCfg, lpWaisCfg);
    return 0;
  }
  std::string temp_name = WaisTempName();
  FilePtr out(std::fopen(temp_name.c_str(), "w"));
  if (!out) {
    PrintMessage(kMsgNoTempFile, temp_name.c_str());
    return 0;
  }
  std::string raw;
  bool line_open = false;  // the last piece copied did not end its line
  while (ReadIndexLine(in.get(), &raw)) {
    std::string_view line = StripLineEnd(raw);
    if (KeysEqual(TrimEndView(FirstToken(line)), lpDefaultURL)) {
      WriteLine(out.get(),
                std::string(lpDefaultURL) + lpTS[1] + (default_url != nullptr ? default_url : ""));
      line_open = false;
    } else {
      std::fwrite(raw.data(), 1, raw.size(), out.get());
      line_open = raw.back() != '\n';
    }
  }
  if (line_open) std::fputc('\n', out.get());
  in.reset();
  bool written = std::ferror(out.get()) == 0;
  written = std::fclose(out.release()) == 0 && written;
  if (!written || std::rename(temp_name.c_str(), lpWaisCfg) != 0) {
    PrintMessage(kMsgNoDefaultURL, lpWaisCfg);
    return 0;
  }
  return 1;
}

int CreateSwishCfg(const char* wcf_path, const char* out_dir, const char* alias) {
  FilePtr in(FopenForReading(lpSwishCfg));
  if (!in) {
    PrintMessage(kMsgNoSwishTemplate, lpSwishCfg);
    return 0;
  }
  IndexField cfg_name;
  GetSwishCFGName(cfg_name, wcf_path);
  AtomicFile out;  // replaced whole, like the store's WAIS configuration
  if (!out.Open(cfg_name)) {
    ReportError({AbsolutePathForMessage(cfg_name)},
                "cannot write the store's SWISH configuration; the search index is not set up",
                GetMessageStr(kMsgNoSwishCfg), cfg_name);
    return 0;
  }
  std::string raw;
  IndexField built;
  while (ReadIndexLine(in.get(), &raw)) {
    std::string_view line = StripLineEnd(raw);
    std::string_view key = FirstToken(line);
    if (key.empty()) continue;
    if (KeysEqual(key, lpIndexDir)) {
      SetIndexDir(built, out_dir, alias);
      WriteLine(out.fp(), built);
    } else if (KeysEqual(key, lpIndexFile)) {
      SetIndexFile(built, wcf_path);
      WriteLine(out.fp(), built);
    } else {
      WriteLine(out.fp(), line);
    }
  }
  if (!out.Commit()) {
    ReportError({AbsolutePathForMessage(cfg_name)},
                "cannot write the store's SWISH configuration; the search index is not set up",
                GetMessageStr(kMsgNoSwishCfg), cfg_name);
    return 0;
  }
  return 1;
}

}  // namespace storegen
