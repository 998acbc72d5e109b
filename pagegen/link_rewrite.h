// Link rewriting: relative link targets of HTML tags become absolute paths
// under the store's HTML alias (an action keyword of the cart such as
// "ADDTOCART#" stays in front of the target), and the page generator's own
// link keywords ("PG_CATEGORYFILE#", "PG_PRODUCTFILE#", "PG_SSLSWITCH#",
// "PG_NONSSLSWITCH#", "PG_STOREEXITURL#", "PG_STOREENTERURL#",
// "PG_SEARCHPAGE#", "PG_WWWWAIS#", "PG_TILLBOX#") become complete links.
// Reads the HTML alias from the run state; not reentrant.
#ifndef STOREGEN_PAGEGEN_LINK_REWRITE_H_
#define STOREGEN_PAGEGEN_LINK_REWRITE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// The HTML tags that carry a link, and the attribute that holds it.
struct HTMLTag {
  char tag[33];        // the tag with its "<", upper case
  int32_t length;      // strlen(tag)
  char type;           // one-letter kind of tag
  char attribute[33];  // the link-bearing attribute
};
inline constexpr int32_t kHTMLTagCount = 7;
extern const HTMLTag HTMLTagTable[kHTMLTagCount];

// The cart's action keywords, which stay in front of a link target.
struct LinkAction {
  char keyword[33];  // ends in "#"
  int32_t length;    // strlen(keyword)
  char action;       // one-letter action code
};
inline constexpr int32_t kLinkActionCount = 14;
extern const LinkAction LinkActionTable[kLinkActionCount];

// Size of the parser's markup buffer: the rewritten markup and every link
// target are cut to one byte less.
inline constexpr int kMarkupBufferSize = 2400;

// The row of HTMLTagTable whose tag |markup| starts with (any case), followed
// by white space; the first matching row wins. -1 when none matches, so
// "<IMG>" and "<ABBR ...>" are left alone.
int FindHTMLTagRow(std::string_view markup);

// Rewrites the link attribute of |markup|, a markup that matched row |row|:
// an action keyword (case-sensitive) at the start of the value is kept in
// front, a target with a scheme (a ":" before any "?") is left as written,
// any other target goes through ParseURL. The result is copied into |out|
// (|out_size| bytes), cut to out_size - 1 bytes and terminated. Returns 1
// when the link was rewritten or deliberately kept; 0 when the markup has no
// such attribute, or the value starts at or beyond out_size - 1 (|out| then
// holds the markup, cut). |out| is always terminated when out_size > 0.
int ParseHTMLTag(const char* markup, char* out, int out_size, int row, const char* page_path);

// Makes |target| absolute into |out| (|out_size| bytes, cut to out_size - 1
// and terminated): a target that starts with "/" or "\\" is copied as it
// stands; any other gets the HTML alias and |page_path| in front. A copy of
// the alias that already begins the page path is not repeated, and a "/" is
// put between pieces that would otherwise run together.
void ParseURL(const char* target, char* out, int out_size, const char* page_path);

// The value behind the first "=" of |text|: blanks, tabs, CR and LF skipped;
// a quoted value (double or single quote) ends at ">", CR, LF or the same
// quote, an unquoted one at a blank, "-", ">", tab, CR or LF. Returns a new
// string that the caller releases with free(); null when there is no "=" or
// memory runs out (verbose: "Out of memory\n").
char* GetTagAttrValue(const char* text);

// The value of attribute |name| in |markup| (a marker such as
// "<!-- PAGEGEN_CARDTYPE Name=\"Card\" -->"): the first place where |name|
// (any case) stands as a word followed by optional white space and "=",
// read as GetTagAttrValue reads it. False when the markup has no such
// attribute.
bool MarkerAttribute(std::string_view markup, std::string_view name, std::string* value);

// |markup| as a page gets it from the tag rewriter: rewritten as by
// ParseHTMLTag (cut to kMarkupBufferSize - 1 bytes) when it matches a row of
// HTMLTagTable and link rewriting (kGenRewriteLinks) is on in ctx.options;
// otherwise unchanged.
std::string RewriteLinkTag(std::string_view markup, const PageContext& ctx);

// The template parser offers every closed markup here first. Finds the first
// of the link keywords above present in |markup| (any case, in that order)
// and writes the markup with that keyword expanded. "PG_CATEGORYFILE#" needs
// a current category or a product with one, "PG_PRODUCTFILE#" a product;
// without them the keyword is passed over. Returns 1 when the markup was
// written, 0 when it holds no keyword that applies (nothing written; the
// parser goes on with the markup), -1 when memory ran out.
int ExpandLinkKeyword(PageOutput* out, std::string_view markup, const PageContext& ctx);

// Writes |markup|, a closed markup that does not begin "<!", through
// RewriteLinkTag. Returns 0.
int WriteLinkTag(PageOutput* out, std::string_view markup, const PageContext& ctx);
// The same for a markup whose FindHTMLTagRow is known to be |row|.
int WriteLinkTag(PageOutput* out, std::string_view markup, int row, const PageContext& ctx);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_LINK_REWRITE_H_
