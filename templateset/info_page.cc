// The template set's information page: copied with its pictures into the HTML
// root's information directory and opened in a pop-up window.
#include <strings.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"
#include "cgisupport/path_util.h"
#include "templateset/admin_messages.h"
#include "templateset/management.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr std::size_t kChunkSize = 1000;  // the page is read in chunks of this size
constexpr std::size_t kTagSize = 2400;    // longer tags are copied unchanged

std::time_t (*g_clock)() = nullptr;

std::time_t Now() {
  return g_clock != nullptr ? g_clock() : std::time(nullptr);
}

struct SetReleaser {
  void operator()(TemplateSet* s) const { PG_ShutdownTemplateSet(s); }
};

std::string CurrentDir() {
  std::string dir(4096, '\0');
  if (getcwd(dir.data(), dir.size()) == nullptr) return std::string();
  dir.resize(std::strlen(dir.c_str()));
  return dir;
}

// Changes back into the directory it was made in when it goes out of scope.
class DirKeeper {
 public:
  DirKeeper() : dir_(CurrentDir()) {}
  ~DirKeeper() {
    if (!dir_.empty() && chdir(dir_.c_str()) != 0) {
      // Nothing more can be done; the response is already under way.
    }
  }
  DirKeeper(const DirKeeper&) = delete;
  DirKeeper& operator=(const DirKeeper&) = delete;
  const std::string& dir() const { return dir_; }

 private:
  std::string dir_;
};

std::size_t LastDirSlash(std::string_view path) {
  return path.find_last_of("/\\");
}

}  // namespace

std::string PG_TpltTemplateRoot(const char* default_dir, const char* store_cfg) {
  char buf[256] = "";
  std::string root;
  if (store_cfg != nullptr &&
      GetConfigItem(store_cfg, "PageGenTemplateDir", buf, sizeof buf, 0) == 1 && buf[0] != '\0') {
    root = buf;
    if (!EndsWithDirSlash(root)) root += '/';
  } else if (default_dir != nullptr) {
    root = default_dir;
  }
  std::size_t slash = LastDirSlash(root);
  if (slash == std::string::npos) return "./";
  root.resize(slash + 1);
  return root;
}

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool StartsWithNoCase(std::string_view text, std::string_view word) {
  return text.size() >= word.size() && strncasecmp(text.data(), word.data(), word.size()) == 0;
}

// A reference to a picture elsewhere ("http://...", "//host/...") rather
// than to a file of the template set.
bool IsExternal(std::string_view value) {
  if (value.size() >= 2 && IsDirSlash(value[0]) && IsDirSlash(value[1])) return true;
  std::size_t colon = value.find(':');
  return colon != std::string_view::npos && colon < value.find_first_of("/\\");
}

bool HasParentSegment(std::string_view path) {
  std::size_t pos = 0;
  while (pos <= path.size()) {
    std::size_t end = path.find_first_of("/\\", pos);
    if (end == std::string_view::npos) end = path.size();
    if (path.substr(pos, end - pos) == "..") return true;
    pos = end + 1;
  }
  return false;
}

// Copies the picture |value| names (relative to the set's directory, the
// current one) to the same relative path below |info_dir|.
void CopyPicture(std::string_view value, const std::string& info_dir) {
  std::string_view relative = value;
  while (!relative.empty() && IsDirSlash(relative.front()))
    relative.remove_prefix(1);
  std::string target = info_dir + "/" + std::string(relative);
  bool copied = false;
  if (!relative.empty() && !HasParentSegment(relative)) {
    std::size_t slash = LastDirSlash(target);
    copied = tb_mkdir(target.substr(0, slash).c_str(), 0755) == 0 &&
             tb_CopyFile(std::string(relative).c_str(), target.c_str()) == 0;
  }
  if (!copied) std::printf(GetAdminMessage(kMsgCannotCreateFile), target.c_str());
}

// Finds attribute |name| in |tag| (a whole word followed by '='); returns the
// position just after the '=' and its blanks, or npos.
std::size_t FindAttributeValue(std::string_view tag, std::string_view name) {
  for (std::size_t at = 1; at + name.size() <= tag.size(); ++at) {
    if (!IsBlank(tag[at - 1]) || strncasecmp(tag.data() + at, name.data(), name.size()) != 0) {
      continue;
    }
    std::size_t p = at + name.size();
    while (p < tag.size() && IsBlank(tag[p]))
      ++p;
    if (p >= tag.size() || tag[p] != '=') continue;
    ++p;
    while (p < tag.size() && IsBlank(tag[p]))
      ++p;
    return p;
  }
  return std::string_view::npos;
}

struct PageContext {
  std::string info_dir;  // absolute path of the information directory
  std::string alias;     // URL alias of the HTML root, may be empty
  long stamp = 0;        // seconds, appended to every rewritten reference
};

// Returns |tag| with the picture of an IMG (SRC) or BODY (BACKGROUND) tag
// copied and its reference pointed at the copy; any other tag unchanged.
std::string RewriteTag(const std::string& tag, const PageContext& ctx) {
  std::string_view attribute;
  if (StartsWithNoCase(tag, "<IMG")) {
    attribute = "SRC";
  } else if (StartsWithNoCase(tag, "<BODY")) {
    attribute = "BACKGROUND";
  } else {
    return tag;
  }
  std::size_t p = FindAttributeValue(tag, attribute);
  if (p == std::string::npos || p >= tag.size()) return tag;
  std::size_t start = p;
  std::size_t end;
  if (tag[p] == '"' || tag[p] == '\'') {
    start = p + 1;
    end = tag.find(tag[p], start);
    if (end == std::string::npos) end = tag.size() - 1;  // up to the closing '>'
  } else {
    end = p;
    while (end < tag.size() && !IsBlank(tag[end]) && tag[end] != '>')
      ++end;
  }
  std::string_view value = std::string_view(tag).substr(start, end - start);
  if (value.empty() || IsExternal(value)) return tag;
  CopyPicture(value, ctx.info_dir);
  std::string out = tag.substr(0, start);
  out += ctx.alias;
  out += '/';
  out += kInfoDirName;
  if (!IsDirSlash(value.front())) out += '/';
  out += value;
  out += '?';
  out += std::to_string(ctx.stamp);
  out += tag.substr(end);
  return out;
}

// Copies the page from |in| to |out|: text without CRs, tags as they are
// except picture references, comments ("<!" tags, "--" toggling) whole.
// Returns false when writing failed.
bool CopyInfoPage(FILE* in, FILE* out, const PageContext& ctx) {
  std::string text;
  std::string tag;
  bool in_tag = false;
  bool bang = false;        // the tag begins "<!"
  bool in_comment = false;  // between "--" pairs of a "<!" tag
  bool dash = false;        // the previous character was an unpaired '-'
  bool overlong = false;    // the tag outgrew kTagSize and is passed through
  bool ok = true;
  auto write = [&](std::string_view s) {
    if (!s.empty() && std::fwrite(s.data(), 1, s.size(), out) != s.size()) ok = false;
  };
  char chunk[kChunkSize];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, in)) > 0) {
    for (std::size_t i = 0; i < n; ++i) {
      char c = chunk[i];
      if (!in_tag) {
        if (c == '<') {
          write(text);
          text.clear();
          in_tag = true;
          tag = "<";
          bang = in_comment = dash = overlong = false;
        } else if (c != '\r') {
          text += c;
          if (text.size() >= kChunkSize) {
            write(text);
            text.clear();
          }
        }
        continue;
      }
      tag += c;
      if (!overlong && tag.size() == 2) bang = c == '!';
      if (bang) {
        if (c == '-') {
          if (dash) in_comment = !in_comment;
          dash = !dash;
        } else {
          dash = false;
        }
      }
      if (c == '>' && !in_comment) {
        write(overlong ? tag : RewriteTag(tag, ctx));
        tag.clear();
        in_tag = false;
      } else if (tag.size() >= kTagSize) {
        write(tag);
        tag.clear();
        overlong = true;
      }
    }
  }
  write(text);
  write(tag);  // a tag cut off by the end of the page, as it stands
  return ok && std::ferror(in) == 0;
}

}  // namespace

void SetManagementClockForTesting(std::time_t (*clock)()) {
  g_clock = clock;
}

int PG_TpltDisplayInfoPageAt(const char* set_name, const char* default_dir, const char* store_cfg,
                             const char* html_root, const char* html_alias) {
  if (set_name == nullptr || *set_name == '\0') return 0;
  std::fputs("Content-type: text/html\n\n", stdout);
  DirKeeper back;
  std::string root = PG_TpltTemplateRoot(default_dir, store_cfg);
  if (chdir(root.c_str()) != 0) return 1;
  std::unique_ptr<TemplateSet, SetReleaser> set(
      PG_InitTemplateSet((std::string(set_name) + ".cfg").c_str()));
  if (!set) return 1;

  std::string info_dir;
  if (html_root != nullptr && *html_root != '\0') {
    info_dir = html_root;
    if (!IsDirSlash(info_dir.front())) info_dir = back.dir() + "/" + info_dir;
    while (info_dir.size() > 1 && IsDirSlash(info_dir.back()))
      info_dir.pop_back();
    info_dir += '/';
    info_dir += kInfoDirName;
    tb_mkdir(info_dir.c_str(), 0755);
  }
  if (set->info_page.empty()) return 1;

  const std::string page = set->info_page;
  std::size_t slash = LastDirSlash(page);
  std::string page_name = slash == std::string::npos ? page : page.substr(slash + 1);
  std::string target =
      (info_dir.empty() ? std::string("/") + kInfoDirName : info_dir) + "/" + page_name;
  FilePtr in(FopenForReading(page.c_str(), "rb"));
  if (!in) {
    set.reset();
    std::printf(GetAdminMessage(kMsgInfoPageProblem), page.c_str());
    return 0;
  }
  FilePtr out(info_dir.empty() ? nullptr : std::fopen(target.c_str(), "wb"));
  if (!out) {
    set.reset();
    std::printf(GetAdminMessage(kMsgCannotCreateFile), target.c_str());
    return 0;
  }

  PageContext ctx;
  ctx.info_dir = info_dir;
  ctx.alias = html_alias != nullptr ? html_alias : "";
  ctx.stamp = static_cast<long>(Now());
  if (chdir(set_name) != 0) {
    // Pictures are then looked for in the template root; those missing are
    // reported one by one.
  }
  bool copied = CopyInfoPage(in.get(), out.get(), ctx);
  in.reset();
  copied = std::fclose(out.release()) == 0 && copied;
  if (!copied) {
    std::printf(GetAdminMessage(kMsgCannotCreateFile), target.c_str());
    return 0;
  }

  std::fputs("<HTML><HEAD><SCRIPT>\n", stdout);
  std::printf(
      "window.open(\"%s%s?%d\",\"info\",\"height=500,width=400,scrollbars=yes,resizable=yes\")\n",
      ctx.alias.c_str(), (std::string("/") + kInfoDirName + "/" + page_name).c_str(),
      static_cast<int>(ctx.stamp));
  std::fputs("history.back()\n", stdout);
  std::fputs("</SCRIPT>", stdout);
  std::fputs("</HTML>\n", stdout);
  return 1;
}

int PG_TpltDisplayInfoPage(const char* set_name, const char* default_dir, const char* store_cfg) {
  if (set_name == nullptr || *set_name == '\0') return 0;
  char root[256] = "";
  char alias[256] = "";
  GetHTMLRoot(root, sizeof root);
  GetHTMLRootAlias(alias, sizeof alias);
  return PG_TpltDisplayInfoPageAt(set_name, default_dir, store_cfg, root, alias);
}

}  // namespace storegen
