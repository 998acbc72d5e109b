// Category lists repeated on the later pages of a page series. The pages of
// a series (a shop home page whose product list spreads over many pages)
// are written from one template, and a category list placed directly in the
// page writes the same text on each of them: the categories, their values
// and their links. It is written once and the text kept for the next page,
// as long as nothing it came from has changed: the template text, the
// category database file and every configuration file it looked values up
// in; and only when nothing in it depended on the page (g_page_dependent)
// and the run is not verbose (whose messages would be missing).
#ifndef STOREGEN_PAGEGEN_KEPT_LIST_H_
#define STOREGEN_PAGEGEN_KEPT_LIST_H_

#include <memory>
#include <string>

#include "pagegen/page_context.h"

namespace storegen {

// Writes the text kept for the category list block at |offset| of the
// previous page of the series, and puts the template stream behind the
// block's end marker, when that text is still what the block would write.
// False (nothing written, the stream untouched) when the block must be run.
bool WriteKeptList(TemplateInput* in, PageOutput* out, long offset, const PageContext& ctx);

// Records what the category list block at |offset| writes from now on. When
// Keep is called, the text is kept for the next page of the series;
// otherwise (an error, or the block depended on the page) nothing is.
class ListRecording {
 public:
  ListRecording(TemplateInput* in, PageOutput* out, long offset, const PageContext& ctx);
  ~ListRecording();
  ListRecording(const ListRecording&) = delete;
  ListRecording& operator=(const ListRecording&) = delete;

  // The block ran to its end: the template stream stands behind it.
  void Keep();

 private:
  void StopCapture();

  TemplateInput* in_;
  PageOutput* out_;
  std::shared_ptr<KeptListBlock> block_;  // null: this block is not kept
  std::string text_;
  uint64_t page_dependent_ = 0;
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_KEPT_LIST_H_
