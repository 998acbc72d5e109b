#include "pagegen/template_pieces.h"

#include "pagegen/link_rewrite.h"
#include "pagegen/store_values.h"

namespace storegen {
namespace {

// The length of the tag opener at |at|, or 0. *open_at_end tells that the
// text ends in what could still have become an opener.
std::size_t OpenerAt(std::string_view text, std::size_t at, bool* open_at_end) {
  const std::string_view rest = text.substr(at);
  if (rest.starts_with(kTagOpenPlain)) return kTagOpenPlain.size();
  if (rest.starts_with(kTagOpenEncoded)) return kTagOpenEncoded.size();
  *open_at_end = kTagOpenEncoded.starts_with(rest);
  return 0;
}

// The length of the tag opened by |opener| characters at |at|, up to and
// including its closer; 0 when it is overlong or still open at the end.
std::size_t TagLength(std::string_view text, std::size_t at, std::size_t opener) {
  std::string_view tag = text.substr(at, opener);
  for (std::size_t k = at + opener; k < text.size(); ++k) {
    const char t = text[k];
    tag = text.substr(at, k + 1 - at);
    if (tag.size() >= kTemplateTagSize) return 0;
    if ((t == kTagOpenPlain.back() || t == kTagOpenEncoded.back()) &&
        EndsWithTagCloser(tag, opener)) {
      return tag.size();
    }
  }
  return 0;
}

// The piece of |text| at |offset| for a scanner standing clean there.
TemplatePiece CutTemplatePiece(std::string_view text, std::size_t offset, bool script) {
  TemplatePiece piece;
  // Where the scanner takes over when the piece cannot reach further: a
  // place where it stands clean, as at the piece's start.
  auto hand_to_scanner = [&](std::size_t at) -> TemplatePiece {
    piece.end = TemplatePiece::End::kScanner;
    piece.next = at;
    return std::move(piece);
  };
  std::size_t i = offset;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '\r') {
      ++i;
      continue;
    }
    if (c == '%') {
      bool open_at_end = false;
      const std::size_t opener = OpenerAt(text, i, &open_at_end);
      if (open_at_end) return hand_to_scanner(i);
      if (opener == 0) {
        piece.text += c;
        ++i;
        continue;
      }
      const std::size_t length = TagLength(text, i, opener);
      if (length == 0) return hand_to_scanner(i);  // overlong, or open at the end
      piece.item = text.substr(i, length);
      piece.end = TemplatePiece::End::kTag;
      piece.next = i + length;
      return piece;
    }
    if (c != '<') {
      piece.text += c;
      ++i;
      continue;
    }
    // A markup: up to its ">" outside a comment. Another "<" outside a
    // comment writes what came before as text and starts again there. Tags
    // in it are parts of their own; what they stand for changes nothing of
    // the markup's course (comments, its end), only its length.
    std::string markup = "<";
    std::size_t literal = i;  // where the literal part being collected starts
    bool in_comment = false;
    bool dash = false;
    std::size_t k = i + 1;
    for (;; ++k) {
      if (k == text.size()) return hand_to_scanner(i);  // dropped at the end
      const char m = text[k];
      if (m == '%') {
        bool open_at_end = false;
        const std::size_t opener = OpenerAt(text, k, &open_at_end);
        if (open_at_end) return hand_to_scanner(i);
        if (opener != 0) {
          // The character behind the "<" decides how the scanner counts
          // dashes: a tag's value there is left to it.
          if (markup.size() < 2) return hand_to_scanner(i);
          const std::size_t length = TagLength(text, k, opener);
          if (length == 0 || markup.size() + length >= kTemplateMarkupSize)
            return hand_to_scanner(i);
          piece.parts.push_back({std::string(text.substr(literal, k - literal)), std::nullopt, k});
          piece.parts.push_back(
              {std::string(text.substr(k, length)), TagParts(text.substr(k, length)), k + length});
          markup.append(text.substr(k, length));
          literal = k + length;
          k += length - 1;
          continue;
        }
      }
      if (m == '<' && !in_comment) {
        if (!piece.parts.empty()) return hand_to_scanner(i);  // what came before holds tags
        piece.text += markup;
        markup.assign(1, '<');
        dash = false;
        i = literal = k;
        continue;
      }
      if (markup.size() >= 2 && markup[1] == '!' && !script)
        CountCommentDash(m, &dash, &in_comment);
      markup += m;
      if (markup.size() >= kTemplateMarkupSize) return hand_to_scanner(i);
      if (m == '>' && !in_comment) break;
    }
    if (!piece.parts.empty()) {
      piece.parts.push_back(
          {std::string(text.substr(literal, k + 1 - literal)), std::nullopt, k + 1});
      piece.end = TemplatePiece::End::kComposed;
      piece.next = k + 1;
      return piece;
    }
    if (MarkupFacts(markup).WrittenAsItStands()) {
      piece.text += markup;
      i = k + 1;
      continue;
    }
    piece.item = std::move(markup);
    piece.end = TemplatePiece::End::kMarkup;
    piece.next = k + 1;
    return piece;
  }
  piece.end = TemplatePiece::End::kEndOfText;
  piece.next = text.size();
  return piece;
}

}  // namespace

MarkupFacts::MarkupFacts(std::string_view markup)
    : bang(markup.size() >= 2 && markup[1] == '!'),
      keywords(markup.find('#') != std::string_view::npos &&
               FindNoCase(markup, "PG_") != std::string_view::npos),
      markers(bang ? markup : std::string_view()),
      found(0),
      store_value(static_cast<int8_t>(FindStoreValueMarker(markers))),
      script(bang                                   ? 0
             : StartsWithNoCase(markup, "<SCRIPT")  ? 1
             : StartsWithNoCase(markup, "</SCRIPT") ? -1
                                                    : 0),
      link_row(bang ? -1 : FindHTMLTagRow(markup)) {
  static constexpr std::string_view kNames[] = {
      "PAGEGEN_CATEGORYLIST_BEGIN", "PAGEGEN_CATEGORYLIST_END", "PAGEGEN_PRODUCTLIST_BEGIN",
      "PAGEGEN_PRODUCTLIST_END",    "PAGEGEN_ATTRIBUTES",       "PAGEGEN_TEXT_BEGIN",
      "PAGEGEN_TEXT_END",           "PAGEGEN_CARDTYPE",
  };
  if (!markers.Any()) return;
  for (uint32_t m = 0; m < std::size(kNames); ++m) {
    if (markers.Has(kNames[m])) found |= 1u << m;
  }
}

const TemplatePiece& TemplatePieces::At(std::size_t offset, bool script) {
  if (index_.empty()) index_.assign(2 * (text_.size() + 1), 0);
  int32_t& slot = index_[2 * offset + (script ? 1 : 0)];
  if (slot == 0) {
    auto piece = std::make_unique<TemplatePiece>(CutTemplatePiece(text_, offset, script));
    // The facts view the item: found where it stays.
    if (piece->end == TemplatePiece::End::kMarkup) piece->facts.emplace(piece->item);
    if (piece->end == TemplatePiece::End::kTag) piece->tag.emplace(piece->item);
    pieces_.push_back(std::move(piece));
    slot = static_cast<int32_t>(pieces_.size());
  }
  return *pieces_[static_cast<std::size_t>(slot - 1)];
}

}  // namespace storegen
