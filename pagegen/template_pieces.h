// A template's text cut into pieces ahead of parsing. From a place where the
// template scanner stands in plain text with nothing open, a piece is the
// literal text up to the next tag or markup that depends on the page, and
// that tag or markup; markup written as it stands is part of the text. The
// pieces of one template version are cut once, on first use of each place,
// and serve every page written from that version: the parser then handles
// each tag and markup once instead of looking at every character again.
//
// A markup that holds tags is a piece's item too, as its literal parts and
// its tags: a page composes it from the tags' values and handles it as the
// scanner would have handled the markup it collected.
//
// A piece reaches only as far as the scanner's work depends on the text
// alone: an overlong tag or markup, a markup that holds a tag and a second
// "<", or an opener or markup left open at the end of the text ends the
// piece before it, and the scanner takes over there.
#ifndef STOREGEN_PAGEGEN_TEMPLATE_PIECES_H_
#define STOREGEN_PAGEGEN_TEMPLATE_PIECES_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/config_file.h"
#include "pagegen/tag_values.h"
#include "pagegen/text_match.h"

namespace storegen {

// What the parser's handling of a closed markup depends on in its text
// alone: found once for each markup of a piece, and for each markup the
// scanner closes.
struct MarkupFacts {
  // The markers the parser handles itself; store value markers are found by
  // FindStoreValueMarker.
  enum Marker : uint8_t {
    kCategoryListBegin,
    kCategoryListEnd,
    kProductListBegin,
    kProductListEnd,
    kAttributes,
    kTextBegin,
    kTextEnd,
    kCardType,
  };

  explicit MarkupFacts(std::string_view markup);
  bool Has(Marker m) const { return (found & (1u << m)) != 0; }

  bool bang;             // a "<!" markup: markers are looked for in it
  bool keywords;         // may hold a link keyword: a "#" and "PG_"
  MarkerFinder markers;  // the markers of a "<!" markup; none in others
  uint32_t found;        // the markers it holds (bit 1 << Marker)
  int8_t store_value;    // its store value marker (FindStoreValueMarker), or -1
  int8_t script;         // 1: opens a script element, -1: closes one, 0: neither
  int link_row;          // FindHTMLTagRow of the markup

  // Whether the markup is written as it stands on every page: no marker,
  // no link keyword, no script boundary, no link to rewrite.
  bool WrittenAsItStands() const {
    return !keywords && (bang ? !markers.Any() : script == 0 && link_row < 0);
  }
  // Whether the markup's handling is only the rewriting of its link.
  bool LinkOnly() const { return !bang && !keywords && script == 0 && link_row >= 0; }
  // Whether the markup's handling is only the writing of a store value.
  bool StoreValueOnly() const { return bang && !keywords && found == 0 && store_value >= 0; }
};

// What the template scanner and the pieces agree on: markup and tags this
// long or longer pass through unprocessed; tags open and close with "%%" or
// its URL-encoded form.
inline constexpr std::size_t kTemplateMarkupSize = 2400;
inline constexpr std::size_t kTemplateTagSize = 2400;
inline constexpr std::string_view kTagOpenPlain = "%%";
inline constexpr std::string_view kTagOpenEncoded = "%25%25";

// Whether the tag text |s|, opened by |min_length| characters, ends with a
// closer behind its opener.
inline bool EndsWithTagCloser(std::string_view s, std::size_t min_length) {
  return (s.ends_with(kTagOpenPlain) && s.size() >= min_length + kTagOpenPlain.size()) ||
         (s.ends_with(kTagOpenEncoded) && s.size() >= min_length + kTagOpenEncoded.size());
}

// The comment rule of "<!" markup outside scripts, for the character |c|
// added to such a markup: a pair of dashes opens or closes a comment.
// |dash| tells whether the character before was an unpaired dash.
inline void CountCommentDash(char c, bool* dash, bool* in_comment) {
  if (c != '-') {
    *dash = false;
  } else if (*dash) {
    *in_comment = !*in_comment;
    *dash = false;
  } else {
    *dash = true;
  }
}

struct TemplatePiece {
  enum class End : uint8_t {
    kScanner,    // the scanner goes on at |next|
    kTag,        // |item| is a whole tag, opener and closer included
    kMarkup,     // |item| is a closed markup, from its "<" to its ">"
    kComposed,   // |parts| make a closed markup that holds tags
    kEndOfText,  // nothing follows
  };
  std::string text;  // written as it stands (carriage returns of plain text dropped)
  std::string item;
  std::optional<MarkupFacts> facts;  // of a markup item
  std::optional<TagParts> tag;       // of a tag item

  // The parts of a kComposed item in order: literal text as it stands in the
  // template, and tags.
  struct Part {
    std::string text;             // the literal text, or the whole tag
    std::optional<TagParts> tag;  // set for a tag
    std::size_t end = 0;          // offset behind the part in the template
  };
  std::vector<Part> parts;

  // A link-only markup item as last rewritten, and for which page path and
  // link alias: pages mostly share them.
  struct RewrittenLink {
    bool valid = false;
    std::string page_path;
    std::string alias;
    std::string markup;
  };
  mutable RewrittenLink link;

  // A store value markup item's output, made from configuration values, the
  // page path and the image prefix: kept while the lookups it was made from
  // would answer alike and the page's path and prefix are the same. The
  // store images it registered as secure files are registered again on
  // every page that shows it.
  struct KeptStoreValue {
    ConfigWatch watch;  // the lookups it was made from
    std::string store_cfg;
    std::string page_path;
    std::string image_prefix;
    const void* set = nullptr;
    std::string text;
    std::vector<std::string> secure_files;
  };
  mutable std::unique_ptr<KeptStoreValue> store_value;
  End end = End::kScanner;
  std::size_t next = 0;  // offset behind the item (for kScanner: where the scanner goes on)
};

class TemplatePieces {
 public:
  // |text| must outlive this object and stay unchanged.
  explicit TemplatePieces(std::string_view text) : text_(text) {}
  TemplatePieces(const TemplatePieces&) = delete;
  TemplatePieces& operator=(const TemplatePieces&) = delete;

  std::string_view text() const { return text_; }

  // The piece at |offset| (at most the text's size) for a scanner standing
  // clean there, inside a script element or not. The reference stays valid
  // while this object lives, also when further pieces are cut.
  const TemplatePiece& At(std::size_t offset, bool script);

 private:
  std::string_view text_;
  std::vector<int32_t> index_;  // by offset and script: the piece's number + 1, or 0
  std::vector<std::unique_ptr<TemplatePiece>> pieces_;
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TEMPLATE_PIECES_H_
