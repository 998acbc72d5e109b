#include "pagegen/template_parser.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "cgisupport/scope_exit.h"
#include "cgisupport/stack_room.h"
#include "pagegen/form_controls.h"
#include "pagegen/html_page.h"
#include "pagegen/link_rewrite.h"
#include "pagegen/list_blocks.h"
#include "pagegen/store_values.h"
#include "pagegen/tag_values.h"
#include "pagegen/template_pieces.h"
#include "pagegen/text_blocks.h"
#include "pagegen/text_match.h"
#include "templateset/template_set.h"

namespace storegen {

int32_t g_template_nesting = 0;

namespace {

// A problem of the template being parsed (|error|: an errno, or 0). Out of
// line, so that the parser's frames stay small: templates nest deeply.
[[gnu::noinline, gnu::cold]] void ReportTemplateProblem(const char* what, int error,
                                                        const char* verbose_text) {
  std::string detail = what;
  if (error != 0) detail += std::string(": ") + std::strerror(error);
  ReportError({AbsolutePathForMessage(CurrentTemplatePath())}, detail, "%s", verbose_text);
}

constexpr std::size_t kChunkSize = 1000;  // template reads
constexpr std::size_t kTextSize = 1000;   // plain text written in blocks of this size
constexpr int32_t kMaxNesting = 10000;
// Nested list blocks recurse as deep as the nesting limit allows, which
// takes more stack than a thread has in some builds: below this much stack
// left, a parse goes on on a new thread's stack of the second size.
constexpr std::size_t kParseStackRoom = std::size_t{1} << 20;
constexpr std::size_t kParseStackSize = std::size_t{32} << 20;

// What relative store images get in front: the secure store directory on
// secure pages (when the store has one), else the page path.
std::string ImagePrefix(const PageContext& ctx) {
  if (ctx.secure) {
    char secure[kPathSize] = "";
    GetConfigItem(ctx.store_cfg, "SecureStoreDir", secure, sizeof secure, 0);
    AppendSlashIfMissing(secure);
    if (secure[0] != '\0') return secure;
  }
  return ctx.page_path;
}

// What the scanner does after a character.
enum class Step {
  kGo,        // next character
  kHandOver,  // run the list block noted in block_ (from Run, to keep the
              // recursion through nested blocks shallow)
  kReturn,    // leave the parser with rc_
};

using ListBlockFn = int (*)(TemplateInput*, PageOutput*, std::string_view, long,
                            const PageContext&);

// The state of one parser call; it lives on the heap, since list blocks nest
// parser calls deeply.
class Parser {
 public:
  // Readies the parser for a call: its state as new, its buffers kept.
  void Start(TemplateInput* in, PageOutput* out, const PageContext& ctx);
  int Run();

 private:
  // Not inlined into Run: Run's frame is on the stack once per nested list
  // block.
  [[gnu::noinline]] Step Scan(std::string_view chunk, long start);
  bool Clean() const { return !in_markup_ && !in_tag_ && !in_tail_ && pending_.empty(); }
  [[gnu::noinline]] Step TakePieces(std::size_t offset, std::size_t* next);
  Step ComposedMarkup(const TemplatePiece& piece, std::size_t* resume);
  std::string_view RewrittenLink(const TemplatePiece& piece);
  std::string_view KeptStoreValue(const TemplatePiece& piece);
  Step Feed(char c);
  Step Ordinary(char c);
  std::size_t TakeRun(const char* p, std::size_t n);
  Step CloseMarkup();
  Step HandleMarkup(std::string_view m, const MarkupFacts& facts);
  Step HandOver(ListBlockFn block, std::string marker);
  Step RunBlock();
  Step EndBlock();
  Step Fail(int rc) {
    rc_ = rc;
    return Step::kReturn;
  }
  void TagChar(char c);
  void TailChar(char c);
  void Emit(std::string_view s);
  void AppendText(std::string_view s);
  void AppendMarkup(std::string_view s);
  void StartMarkup();
  void WriteMarkupAsText();
  void FlushText();
  void Finish();

  TemplateInput* in_ = nullptr;
  PageOutput* out_ = nullptr;
  const PageContext* ctx_ = nullptr;
  TemplatePieces* pieces_ = nullptr;  // the template's pieces, when its text is in memory
  std::vector<char> chunk_;           // else: the template is read in chunks
  std::string image_prefix_;          // secure prefix, or the page path

  std::string text_;             // plain text not yet written
  std::string markup_;           // open markup, from its "<"
  std::string closed_;           // the markup being handled, once closed
  std::string composed_;         // a markup composed from a piece's parts
  std::string tag_;              // open tag, from its opener
  std::string pending_;          // what may become a tag opener ("%", "%2", ... "%25%2")
  std::string tail_;             // last characters of an overlong tag's rest
  ListBlockFn block_ = nullptr;  // list block to run, with its begin marker
  std::string block_marker_;
  bool in_markup_ = false;
  bool in_comment_ = false;
  bool dash_ = false;  // the previous markup character was an unpaired "-"
  bool in_tag_ = false;
  bool in_tail_ = false;  // the rest of an overlong tag is passing through
  bool script_ = false;
  std::size_t opener_length_ = 0;
  long pos_ = 0;  // stream offset just behind the character being handled
  int result_ = 0;
  int rc_ = 0;
};

void Parser::Start(TemplateInput* in, PageOutput* out, const PageContext& ctx) {
  in_ = in;
  out_ = out;
  ctx_ = &ctx;
  pieces_ = in != nullptr ? in->pieces : nullptr;
  if (pieces_ == nullptr) chunk_.resize(kChunkSize);
  image_prefix_ = ImagePrefix(ctx);
  text_.clear();
  markup_.clear();
  closed_.clear();
  composed_.clear();
  tag_.clear();
  pending_.clear();
  tail_.clear();
  block_ = nullptr;
  block_marker_.clear();
  in_markup_ = in_comment_ = dash_ = in_tag_ = in_tail_ = script_ = false;
  opener_length_ = 0;
  pos_ = 0;
  result_ = rc_ = 0;
}

// Nested list blocks recurse through Run, RunBlock and the block processor:
// their frames are kept small, and everything else lives in the Parser on
// the heap.
int Parser::Run() {
  FILE* fp = in_ != nullptr ? in_->fp : nullptr;
  long at = fp != nullptr ? TemplateTell(in_) : 0;
  while (fp != nullptr) {
    std::string_view chunk;
    if (pieces_ != nullptr) {
      // The text in memory is one chunk, read from in_->position.
      const std::string_view text = pieces_->text();
      chunk = text.substr(std::min(static_cast<std::size_t>(std::max(at, 0L)), text.size()));
    } else {
      const std::size_t n = std::fread(chunk_.data(), 1, chunk_.size(), fp);
      if (std::ferror(fp)) {
        ReportTemplateProblem("cannot read the template", errno, "Error reading template file\n");
        return kTemplateReadError;
      }
      chunk = std::string_view(chunk_.data(), n);
    }
    if (chunk.empty()) break;
    Step step = Scan(chunk, at);
    if (step == Step::kGo) {
      at += static_cast<long>(chunk.size());
      continue;
    }
    // After a list block the stream stands behind its end marker; the rest
    // of this chunk is read again from there.
    if (step == Step::kHandOver) step = RunBlock();
    if (step == Step::kReturn) return rc_;
    at = TemplateTell(in_);
  }
  if (pieces_ != nullptr) in_->position = at;
  Finish();
  return result_;
}

// Scans |chunk|, which starts at the stream offset |start|, through the
// pieces where the scanner stands clean and character by character
// elsewhere. Returns kGo at the chunk's end.
Step Parser::Scan(std::string_view chunk, long start) {
  const char* p = chunk.data();
  const std::size_t n = chunk.size();
  for (std::size_t i = 0; i < n;) {
    if (pieces_ != nullptr && Clean()) {
      std::size_t next = 0;
      const Step step = TakePieces(static_cast<std::size_t>(start) + i, &next);
      if (step != Step::kGo) return step;
      i = next - static_cast<std::size_t>(start);
      if (i >= n) break;
    }
    // A run of characters that change nothing but the text or markup
    // being collected is taken at once; the character behind it goes
    // through the scanner.
    i += TakeRun(p + i, n - i);
    if (i == n) break;
    pos_ = start + static_cast<long>(i) + 1;
    const Step step = Feed(p[i++]);
    if (step != Step::kGo) return step;
  }
  pos_ = start + static_cast<long>(n);
  return Step::kGo;
}

// Writes pieces from |offset| on while they reach: each piece's text, then
// its tag or markup handled as the scanner would. *next gets where the
// scanner goes on (the text's end when the pieces reached it).
Step Parser::TakePieces(std::size_t offset, std::size_t* next) {
  FlushText();
  for (;;) {
    const TemplatePiece& piece = pieces_->At(offset, script_);
    WriteOutput(out_, piece.text);
    offset = piece.next;
    *next = offset;
    pos_ = static_cast<long>(offset);
    switch (piece.end) {
      case TemplatePiece::End::kScanner:
      case TemplatePiece::End::kEndOfText:
        return Step::kGo;
      case TemplatePiece::End::kTag: {
        int warning = 0;
        WriteTemplateTag(out_, piece.item, *piece.tag, *ctx_, image_prefix_, &warning);
        if (warning != 0) result_ = warning;
        break;
      }
      case TemplatePiece::End::kComposed: {
        std::size_t resume = 0;
        const Step step = ComposedMarkup(piece, &resume);
        if (step != Step::kGo) return step;
        if (resume != 0) {
          // Written as text: the scanner goes on in plain text there.
          offset = resume;
          *next = offset;
          pos_ = static_cast<long>(offset);
        }
        break;
      }
      case TemplatePiece::End::kMarkup: {
        if (piece.facts->LinkOnly() && (ctx_->options & kGenRewriteLinks)) {
          WriteOutput(out_, RewrittenLink(piece));
          break;
        }
        if (piece.facts->StoreValueOnly() && !ConfigWatch::Recording()) {
          WriteOutput(out_, KeptStoreValue(piece));
          break;
        }
        const Step step = HandleMarkup(piece.item, *piece.facts);
        if (step != Step::kGo) return step;
        break;
      }
    }
  }
}

// The markup of a kComposed |piece|, composed from its parts and handled as
// the scanner handles the markup it collects: a markup that grows too long
// before its end is written as text, and *resume gets where the scanner
// goes on in plain text.
Step Parser::ComposedMarkup(const TemplatePiece& piece, std::size_t* resume) {
  std::string& m = composed_;
  m.clear();
  int warning = 0;
  for (std::size_t i = 0; i < piece.parts.size() && *resume == 0; ++i) {
    const TemplatePiece::Part& part = piece.parts[i];
    if (part.tag) {
      AppendTemplateTag(&m, part.text, *part.tag, *ctx_, image_prefix_, &warning);
      if (m.size() >= kTemplateMarkupSize) *resume = part.end;
      continue;
    }
    // Any character but the markup's closing ">" makes it too long when it
    // reaches the limit.
    const std::size_t open = i + 1 == piece.parts.size() ? part.text.size() - 1 : part.text.size();
    if (m.size() + open >= kTemplateMarkupSize) {
      const std::size_t taken = kTemplateMarkupSize - m.size();
      m.append(part.text, 0, taken);
      *resume = part.end - part.text.size() + taken;
      continue;
    }
    m += part.text;
  }
  if (warning != 0) result_ = warning;
  if (*resume != 0 || m.size() >= kTemplateMarkupSize) {
    WriteOutput(out_, m);
    return Step::kGo;
  }
  return HandleMarkup(m, MarkupFacts(m));
}

// The link-only markup of |piece| rewritten for this page; kept with the
// piece while the page path and the link alias stay the same.
std::string_view Parser::RewrittenLink(const TemplatePiece& piece) {
  TemplatePiece::RewrittenLink& link = piece.link;
  const std::string_view path = ctx_->page_path != nullptr ? ctx_->page_path : "";
  const std::string_view alias = PageGenState.szHtmlAlias;
  if (!link.valid || link.page_path != path || link.alias != alias) {
    link.markup = RewriteLinkTag(piece.item, *ctx_);
    link.page_path.assign(path);
    link.alias.assign(alias);
    link.valid = true;
  }
  return link.markup;
}

// The store value of |piece|; kept with the piece while what it was made
// from stays the same.
std::string_view Parser::KeptStoreValue(const TemplatePiece& piece) {
  auto& kept = piece.store_value;
  const std::string_view cfg = ctx_->store_cfg != nullptr ? ctx_->store_cfg : "";
  const std::string_view path = ctx_->page_path != nullptr ? ctx_->page_path : "";
  if (kept == nullptr || kept->store_cfg != cfg || kept->page_path != path ||
      kept->image_prefix != image_prefix_ || kept->set != ctx_->set || !kept->watch.Unchanged()) {
    kept = std::make_unique<TemplatePiece::KeptStoreValue>();  // records from here
    kept->store_cfg.assign(cfg);
    kept->page_path.assign(path);
    kept->image_prefix = image_prefix_;
    kept->set = ctx_->set;
    kept->text = StoreValue(piece.facts->store_value, *ctx_, image_prefix_, &kept->secure_files);
    kept->watch.Stop();
  } else {
    for (const std::string& name : kept->secure_files)
      PG_TpltAddSecureFile(ctx_->set, name.c_str());
  }
  return kept->text;
}

// Takes the longest run at |p| (at most |n| characters) that Feed would
// only append to the open tag, the plain text or the open markup: in a tag
// anything but the last character of a closer; in plain text
// anything but "<", "%" and CR; in markup anything but "<", ">" and "%",
// and also not "-" in a "<!" markup (which counts dashes), stopping before
// the character that would make the markup overlong. Returns its length.
// The markup's second character always goes through the scanner.
std::size_t Parser::TakeRun(const char* p, std::size_t n) {
  if (in_tail_ || !pending_.empty()) return 0;
  if (in_tag_) {
    // Only a closer's last character ("%" or "5") can end a tag; anything
    // else is added to it, up to the character that makes it overlong.
    if (tag_.size() + 1 >= kTemplateTagSize) return 0;
    const std::size_t k =
        SpanWithout(p, std::min(n, kTemplateTagSize - 1 - tag_.size()), kTagOpenPlain.back(),
                    kTagOpenEncoded.back(), kTagOpenPlain.back(), kTagOpenEncoded.back());
    tag_.append(p, k);
    return k;
  }
  if (!in_markup_) {
    const std::size_t k = SpanWithout(p, n, '<', '%', '\r', '<');
    if (k > 0) AppendText(std::string_view(p, k));
    return k;
  }
  // The character behind the "<" decides whether dashes count.
  if (markup_.size() < 2 || markup_.size() + 1 >= kTemplateMarkupSize) return 0;
  const bool dashes = markup_[1] == '!' && !script_;
  const std::size_t room = kTemplateMarkupSize - 1 - markup_.size();
  if (n > room) n = room;
  const std::size_t k = SpanWithout(p, n, '<', '>', '%', dashes ? '-' : '<');
  if (k > 0) {
    markup_.append(p, k);
    if (dashes) dash_ = false;
  }
  return k;
}

Step Parser::Feed(char c) {
  if (in_tail_) {
    TailChar(c);
    return Step::kGo;
  }
  if (in_tag_) {
    TagChar(c);
    return Step::kGo;
  }
  if (pending_.empty() && c != '%') return Ordinary(c);

  pending_ += c;
  if (pending_ == kTagOpenPlain || pending_ == kTagOpenEncoded) {
    tag_ = std::move(pending_);
    pending_.clear();
    opener_length_ = tag_.size();
    in_tag_ = true;
    return Step::kGo;
  }
  if (kTagOpenEncoded.starts_with(pending_)) return Step::kGo;
  // Not an opener after all: its "%" is an ordinary character, and the
  // characters behind it are looked at again.
  std::string rest = pending_.substr(1);
  pending_.clear();
  Step step = Ordinary('%');
  for (char r : rest) {
    if (step != Step::kGo) break;
    step = Feed(r);
  }
  return step;
}

void Parser::TagChar(char c) {
  tag_ += c;
  // A closer ends with the last character of "%%" or "%25%25".
  if ((c == kTagOpenPlain.back() || c == kTagOpenEncoded.back()) &&
      EndsWithTagCloser(tag_, opener_length_)) {
    in_tag_ = false;
    std::string tag = std::move(tag_);
    tag_.clear();
    if (tag.size() >= kTemplateTagSize) {
      Emit(tag);
    } else {
      int warning = 0;
      Emit(ResolveTemplateTag(tag, *ctx_, image_prefix_, &warning));
      if (warning != 0) result_ = warning;
    }
    return;
  }
  if (tag_.size() >= kTemplateTagSize) {
    // Written as it stands; its rest, up to and including the closer, is
    // plain text.
    in_tag_ = false;
    in_tail_ = true;
    tail_ = tag_.substr(tag_.size() - (kTagOpenEncoded.size() - 1));
    std::string tag = std::move(tag_);
    tag_.clear();
    Emit(tag);
  }
}

void Parser::TailChar(char c) {
  if (in_markup_) {
    AppendMarkup(std::string_view(&c, 1));
  } else if (c != '\r') {
    AppendText(std::string_view(&c, 1));
  }
  tail_ += c;
  if (tail_.size() > kTagOpenEncoded.size()) tail_.erase(0, tail_.size() - kTagOpenEncoded.size());
  if (EndsWithTagCloser(tail_, 0)) in_tail_ = false;
}

Step Parser::Ordinary(char c) {
  if (!in_markup_) {
    if (c == '<') {
      FlushText();
      StartMarkup();
    } else if (c != '\r') {
      AppendText(std::string_view(&c, 1));
    }
    return Step::kGo;
  }
  if (c == '<' && !in_comment_) {
    WriteMarkupAsText();
    StartMarkup();
    return Step::kGo;
  }
  if (markup_.size() >= 2 && markup_[1] == '!' && !script_)
    CountCommentDash(c, &dash_, &in_comment_);
  markup_ += c;
  if (c == '>' && !in_comment_) return CloseMarkup();
  if (markup_.size() >= kTemplateMarkupSize) WriteMarkupAsText();
  return Step::kGo;
}

Step Parser::CloseMarkup() {
  // The closed markup changes place with the buffer of the last one, so
  // that neither buffer is allocated again for every markup.
  closed_.swap(markup_);
  markup_.clear();
  in_markup_ = in_comment_ = dash_ = false;
  if (closed_.size() >= kTemplateMarkupSize) {
    WriteOutput(out_, closed_);
    return Step::kGo;
  }
  return HandleMarkup(closed_, MarkupFacts(closed_));
}

// Handles the closed markup |m|, shorter than the markup limit.
Step Parser::HandleMarkup(std::string_view m, const MarkupFacts& facts) {
  const bool bang = facts.bang;
  // Markers are looked for in "<!" markup only.
  if (bang) {
    if (facts.Has(MarkupFacts::kCategoryListBegin)) {
      ++g_page_dependent;
      if (ctx_->cat_db == nullptr) {
        ReportTemplateProblem(
            "the template has a category list, but the store has no category database (the "
            "product database's name with .cdb)",
            0, "No category database exists, and template set uses category tags\n");
        return Fail(kNoCategoryDatabase);
      }
      return HandOver(ProcessCatListBegin, std::string(m));
    }
    if (facts.Has(MarkupFacts::kCategoryListEnd) && CatList > 0) {
      --CatList;
      return EndBlock();
    }
    // Product lists exist only on pages that list products; elsewhere their
    // markers are ordinary comments.
    const bool lists = ctx_->product_lists || ctx_->sku_list != nullptr;
    if (lists && facts.Has(MarkupFacts::kProductListBegin)) {
      ++g_page_dependent;
      return HandOver(ProcessProdListBegin, std::string(m));
    }
    if (lists && facts.Has(MarkupFacts::kProductListEnd) && ProdList > 0) {
      --ProdList;
      return EndBlock();
    }
  }
  int rc = facts.keywords ? ExpandLinkKeyword(out_, m, *ctx_) : 0;
  if (rc < 0) return Fail(rc);
  if (rc > 0) return Step::kGo;

  if (bang) {
    if (facts.Has(MarkupFacts::kAttributes)) {
      ++g_page_dependent;
      rc = ProcessAttributes(out_, m, *ctx_);
      return rc != 0 ? Fail(rc) : Step::kGo;
    }
    if (facts.store_value >= 0) {
      WriteOutput(out_, StoreValue(facts.store_value, *ctx_, image_prefix_));
      return Step::kGo;
    }
    if (facts.Has(MarkupFacts::kTextBegin)) {
      ++g_page_dependent;
      rc = BeginTextBlock(out_, m, *ctx_);
      return rc != 0 ? Fail(rc) : Step::kGo;
    }
    if (facts.Has(MarkupFacts::kTextEnd)) {
      ++g_page_dependent;
      EndTextBlock(out_, m);
      return Step::kGo;
    }
    if (facts.Has(MarkupFacts::kCardType)) {
      ++g_page_dependent;
      rc = ProcessCardType(out_, m, *ctx_);
      return rc != 0 ? Fail(rc) : Step::kGo;
    }
    WriteOutput(out_, m);
    return Step::kGo;
  }
  if (facts.script != 0) {
    script_ = facts.script > 0;
  } else if (ctx_->options & kGenRewriteLinks) {
    rc = WriteLinkTag(out_, m, facts.link_row, *ctx_);
    return rc < 0 ? Fail(rc) : Step::kGo;
  }
  WriteOutput(out_, m);
  return Step::kGo;
}

Step Parser::HandOver(ListBlockFn block, std::string marker) {
  block_ = block;
  block_marker_ = std::move(marker);
  return Step::kHandOver;
}

Step Parser::RunBlock() {
  TemplateSeek(in_, pos_);
  int rc = block_(in_, out_, block_marker_, pos_, *ctx_);
  block_marker_.clear();
  if (rc == kUnresolvedCategoryTag) {
    result_ = rc;  // a warning: the page goes on
  } else if (rc != 0) {
    return Fail(rc);
  }
  return Step::kGo;
}

Step Parser::EndBlock() {
  TemplateSeek(in_, pos_);
  rc_ = result_;
  return Step::kReturn;
}

void Parser::Emit(std::string_view s) {
  if (in_markup_) {
    AppendMarkup(s);
  } else {
    AppendText(s);
  }
}

void Parser::AppendText(std::string_view s) {
  text_ += s;
  if (text_.size() >= kTextSize) FlushText();
}

void Parser::AppendMarkup(std::string_view s) {
  markup_ += s;
  if (markup_.size() >= kTemplateMarkupSize) WriteMarkupAsText();
}

void Parser::StartMarkup() {
  markup_ = "<";
  in_markup_ = true;
  in_comment_ = dash_ = false;
}

void Parser::WriteMarkupAsText() {
  FlushText();
  WriteOutput(out_, markup_);
  markup_.clear();
  in_markup_ = in_comment_ = dash_ = false;
}

void Parser::FlushText() {
  WriteOutput(out_, text_);
  text_.clear();
}

void Parser::Finish() {
  // An unclosed markup is dropped; unclosed tag text is written.
  if (!in_markup_) text_ += pending_;
  FlushText();
  if (in_tag_) WriteOutput(out_, tag_);
}

}  // namespace

int ParseTemplate(TemplateInput* in, PageOutput* out, const PageContext& ctx) {
  const int32_t depth = g_template_nesting++;
  const ScopeExit leave([] { --g_template_nesting; });
  if (depth > kMaxNesting) {
    ReportTemplateProblem(
        "templates nested too deeply: does a list block's CategoryTemplate lead back to this "
        "template?",
        0, "Tags nested too deeply\n");
    return kTagsNestedTooDeeply;
  }
  // The parser's state lives on the heap: nested list blocks recurse deeply.
  // Each depth keeps its parser, whose buffers then serve every call there
  // (a list block parses its text once per entry).
  static auto* parsers =
      new std::vector<std::unique_ptr<Parser>>();  // lives until the process ends
  while (parsers->size() <= static_cast<std::size_t>(depth))
    parsers->push_back(std::make_unique<Parser>());
  Parser* parser = (*parsers)[static_cast<std::size_t>(depth)].get();
  parser->Start(in, out, ctx);
  if (StackRoomLeft(kParseStackRoom)) return parser->Run();
  int rc = kOutOfMemory;
  if (!RunOnFreshStack(kParseStackSize, [&] { rc = parser->Run(); }))
    VerbosePrintf("Out of memory\n");
  return rc;
}

int ParseTemplateText(std::string_view text, const PageContext& ctx, std::string* page,
                      std::string_view page_file, bool pieces) {
  TemplatePieces text_pieces(text);
  return ParseTemplateText(text, ctx, page, page_file, pieces ? &text_pieces : nullptr);
}

int ParseTemplateText(std::string_view text, const PageContext& ctx, std::string* page,
                      std::string_view page_file, TemplatePieces* pieces) {
  FilePtr in(text.empty() ? std::tmpfile()
                          : fmemopen(const_cast<char*>(text.data()), text.size(), "r"));
  char* buf = nullptr;
  std::size_t length = 0;
  FILE* out_fp = open_memstream(&buf, &length);

  TemplateInput input;
  input.fp = in.get();
  if (in != nullptr && !text.empty()) input.pieces = pieces;
  PageOutput output;
  output.fp = out_fp;
  output.file_name = output.series_name = page_file;
  int rc = ParseTemplate(&input, &output, ctx);
  AbandonTextBlock(&output);
  if (out_fp != nullptr) std::fclose(out_fp);
  page->assign(buf != nullptr ? buf : "", length);
  std::free(buf);
  return rc;
}

}  // namespace storegen
