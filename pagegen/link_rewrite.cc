#include "pagegen/link_rewrite.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/run_state.h"
#include "pagegen/text_match.h"

namespace storegen {

const HTMLTag HTMLTagTable[kHTMLTagCount] = {
    {"<IMG", 4, 'I', "SRC"},         {"<A", 2, 'A', "HREF"},    {"<FORM", 5, 'F', "ACTION"},
    {"<BODY", 5, 'B', "BACKGROUND"}, {"<FRAME", 6, 'R', "SRC"}, {"<AREA", 5, 'M', "HREF"},
    {"<BASE", 5, 'S', "HREF"},
};

const LinkAction LinkActionTable[kLinkActionCount] = {
    {"ADDTOCART#", 10, 'A'},     {"CLEARCART#", 10, 'C'},   {"GEOGRAPHY#", 10, 'G'},
    {"USERGEN#", 8, 'R'},        {"USERPROG#", 9, 'U'},     {"IMAGEMAP#", 9, 'I'},
    {"TAKEORDER#", 10, 'T'},     {"MAILFORM#", 9, 'S'},     {"ADDPRODUCT#", 11, 'P'},
    {"CYBERCASH#", 10, 'Y'},     {"WALLET#", 7, 'Y'},       {"NOPARSE#", 8, 'N'},
    {"PWAY_USERPROG#", 14, 'V'}, {"PWAY_WALLET#", 12, 'W'},
};

namespace {

constexpr std::size_t kTargetLimit = kMarkupBufferSize - 1;
constexpr std::string_view kValueBlanks = " \t\r\n";

bool IsBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string_view Cut(std::string_view s, std::size_t limit) {
  return s.substr(0, limit);
}

// Where the value behind the first "=" of |text| starts and ends: the
// characters that end it depend on whether it is quoted, and |unquoted_ends|
// are the ones that end an unquoted value. False without an "=".
bool FindValue(std::string_view text, std::string_view unquoted_ends, std::size_t* start,
               std::size_t* end) {
  std::size_t at = text.find('=');
  if (at == std::string_view::npos) return false;
  const std::size_t n = text.size();
  ++at;
  while (at < n && kValueBlanks.find(text[at]) != std::string_view::npos)
    ++at;
  std::size_t e = at;
  if (at < n && (text[at] == '"' || text[at] == '\'')) {
    // A quoted value ends at its quote, or at ">", CR or LF.
    const char quote = text[at];
    *start = e = at + 1;
    while (e < n && text[e] != quote && text[e] != '>' && text[e] != '\r' && text[e] != '\n')
      ++e;
  } else {
    *start = at;
    while (e < n && unquoted_ends.find(text[e]) == std::string_view::npos)
      ++e;
  }
  *end = e;
  return true;
}

std::string_view AttrValue(std::string_view text, bool* found) {
  std::size_t start = 0;
  std::size_t end = 0;
  *found = FindValue(text, " ->\t\r\n", &start, &end);
  return *found ? text.substr(start, end - start) : std::string_view();
}

bool HasScheme(std::string_view target) {
  std::size_t colon = target.find(':');
  return colon != std::string_view::npos && colon < target.find('?');
}

// The absolute URL of |target| on a page at |page_path|, appended to |url|.
void AppendAbsoluteUrl(std::string* url, std::string_view target, std::string_view page_path) {
  if (!target.empty() && IsDirSlash(target.front())) {
    url->append(target);
    return;
  }
  std::string_view alias = PageGenState.szHtmlAlias;
  // The page path usually begins with the alias already: it must not stand
  // twice. Only a whole leading path component counts as that copy.
  if (!alias.empty() && page_path.starts_with(alias) &&
      (EndsWithDirSlash(alias) || page_path.size() == alias.size() ||
       IsDirSlash(page_path[alias.size()]))) {
    page_path.remove_prefix(alias.size());
  }
  const std::size_t start = url->size();
  url->append(alias);
  for (std::string_view piece : {page_path, target}) {
    if (piece.empty()) continue;
    if (url->size() > start && !IsDirSlash(url->back()) && !IsDirSlash(piece.front())) *url += '/';
    url->append(piece);
  }
}

std::string AbsoluteUrl(std::string_view target, std::string_view page_path) {
  std::string url;
  AppendAbsoluteUrl(&url, target, page_path);
  return url;
}

// ParseHTMLTag on a view, its text appended to |out|; returns ParseHTMLTag's
// result.
int AppendRewrittenRow(std::string* out, std::string_view markup, int row,
                       std::string_view page_path, std::size_t limit) {
  const HTMLTag& tag = HTMLTagTable[row];
  std::string_view attribute(tag.attribute);
  std::size_t at = FindNoCase(markup, attribute);
  std::size_t start = 0;
  std::size_t end = 0;
  if (at == std::string_view::npos ||
      !FindValue(markup.substr(at + attribute.size()), "> \t\r\n", &start, &end)) {
    out->append(Cut(markup, limit));
    return 0;
  }
  start += at + attribute.size();
  end += at + attribute.size();
  if (start >= limit) {
    out->append(Cut(markup, limit));
    return 0;
  }

  std::string_view value = Cut(markup.substr(start, end - start), kTargetLimit);
  std::string_view keyword;
  if (value.find('#') != std::string_view::npos) {  // every action keyword ends in "#"
    for (const LinkAction& action : LinkActionTable) {
      std::string_view k(action.keyword, static_cast<std::size_t>(action.length));
      if (value.starts_with(k)) {
        keyword = k;
        value.remove_prefix(k.size());
        break;
      }
    }
  }
  if (HasScheme(value)) {
    out->append(Cut(markup, limit));
    return 1;
  }
  const std::size_t base = out->size();
  out->append(markup.substr(0, start));
  out->append(keyword);
  const std::size_t url = out->size();
  AppendAbsoluteUrl(out, value, page_path);
  if (out->size() - url > kTargetLimit) out->resize(url + kTargetLimit);
  // The rest follows from the character that ended the value: the closing
  // quote of a quoted value stays.
  out->append(markup.substr(end));
  if (out->size() - base > limit) out->resize(base + limit);
  return 1;
}

// ParseHTMLTag on a view; *result gets its return value.
std::string RewriteRow(std::string_view markup, int row, std::string_view page_path,
                       std::size_t limit, int* result) {
  std::string out;
  *result = AppendRewrittenRow(&out, markup, row, page_path, limit);
  return out;
}

// The row of the link tag |markup| is when links are rewritten; -1 when it
// is left as it stands.
int LinkTagRow(std::string_view markup, const PageContext& ctx) {
  return (ctx.options & kGenRewriteLinks) ? FindHTMLTagRow(markup) : -1;
}

// |markup|, which matched |row|, with its link rewritten for the page.
std::string RewriteTagRow(std::string_view markup, int row, const PageContext& ctx) {
  int result = 0;
  return RewriteRow(markup, row, ctx.page_path != nullptr ? ctx.page_path : "",
                    kMarkupBufferSize - 1, &result);
}

}  // namespace

int FindHTMLTagRow(std::string_view markup) {
  // Most markup is passed over by its first letter alone.
  static const std::string first_letters = [] {
    std::string letters;
    for (const HTMLTag& tag : HTMLTagTable) {
      const char c = tag.tag[1];
      letters += c;
      if (c >= 'A' && c <= 'Z') letters += static_cast<char>(c - 'A' + 'a');
      if (c >= 'a' && c <= 'z') letters += static_cast<char>(c - 'a' + 'A');
    }
    return letters;
  }();
  if (markup.size() < 2 || first_letters.find(markup[1]) == std::string::npos) return -1;
  for (int32_t row = 0; row < kHTMLTagCount; ++row) {
    std::string_view tag(HTMLTagTable[row].tag, static_cast<std::size_t>(HTMLTagTable[row].length));
    if (markup.size() > tag.size() && StartsWithNoCase(markup, tag) && IsBlank(markup[tag.size()]))
      return row;
  }
  return -1;
}

int ParseHTMLTag(const char* markup, char* out, int out_size, int row, const char* page_path) {
  if (out_size <= 0) return 0;
  int result = 0;
  std::string text = RewriteRow(markup != nullptr ? markup : "", row, page_path ? page_path : "",
                                static_cast<std::size_t>(out_size - 1), &result);
  CopyTruncated(out, static_cast<std::size_t>(out_size), text);
  return result;
}

void ParseURL(const char* target, char* out, int out_size, const char* page_path) {
  if (out_size <= 0) return;
  CopyTruncated(out, static_cast<std::size_t>(out_size),
                AbsoluteUrl(target != nullptr ? target : "", page_path ? page_path : ""));
}

char* GetTagAttrValue(const char* text) {
  bool found = false;
  std::string_view value = AttrValue(text != nullptr ? text : "", &found);
  if (!found) return nullptr;
  char* copy = static_cast<char*>(std::malloc(value.size() + 1));
  if (copy == nullptr) {
    ReportOutOfMemory();
    return nullptr;
  }
  std::memcpy(copy, value.data(), value.size());
  copy[value.size()] = '\0';
  return copy;
}

bool MarkerAttribute(std::string_view markup, std::string_view name, std::string* value) {
  for (std::size_t from = 0;;) {
    std::size_t at = FindNoCase(markup.substr(from), name);
    if (at == std::string_view::npos || name.empty()) return false;
    at += from;
    from = at + 1;
    if (at > 0) {
      unsigned char before = static_cast<unsigned char>(markup[at - 1]);
      if (std::isalnum(before) || before == '_') continue;
    }
    std::string_view rest = markup.substr(at + name.size());
    std::size_t eq = rest.find_first_not_of(kValueBlanks);
    if (eq == std::string_view::npos || rest[eq] != '=') continue;
    bool found = false;
    *value = std::string(AttrValue(rest, &found));
    return found;
  }
}

std::string RewriteLinkTag(std::string_view markup, const PageContext& ctx) {
  const int row = LinkTagRow(markup, ctx);
  if (row < 0) return std::string(markup);
  return RewriteTagRow(markup, row, ctx);
}

int WriteLinkTag(PageOutput* out, std::string_view markup, const PageContext& ctx) {
  return WriteLinkTag(out, markup, LinkTagRow(markup, ctx), ctx);
}

int WriteLinkTag(PageOutput* out, std::string_view markup, int row, const PageContext& ctx) {
  // Most markup is no link tag: it is written as it stands, without a copy.
  if (row < 0 || !(ctx.options & kGenRewriteLinks)) return WriteOutput(out, markup);
  // The rewritten tag is written before the buffer serves the next one.
  static auto* rewritten = new std::string();  // lives until the process ends
  rewritten->clear();
  AppendRewrittenRow(rewritten, markup, row, ctx.page_path != nullptr ? ctx.page_path : "",
                     kMarkupBufferSize - 1);
  return WriteOutput(out, *rewritten);
}

}  // namespace storegen
