// The built-in reader's product database as a run's product list reads it:
// its lines walked in large blocks, and any one of them read back later by
// where it lies. A list of a million products then keeps where each line
// lies instead of its record, and a page reads the record back when it
// needs it. Lines, fields and records are those the reader's walk gives
// (product_db.h): the same pieces of overlong lines, the same empty lines
// passed over, the same names and values.
#ifndef STOREGEN_STOREDATA_PRODUCT_FILE_H_
#define STOREGEN_STOREDATA_PRODUCT_FILE_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "storedata/papi.h"

namespace storegen {

// Calls |visit| with each of the name line's fields, at most |limit| of
// them, until it returns false: runs of separators (TAB, CR, LF) count as
// one, so no name is empty.
template <typename Visit>
void ForEachNameField(std::string_view line, std::size_t limit, Visit visit) {
  auto separator = [](char c) { return c == '\t' || c == '\r' || c == '\n'; };
  std::size_t i = 0;
  for (std::size_t taken = 0; i < line.size() && taken < limit; ++taken) {
    while (i < line.size() && separator(line[i]))
      ++i;
    if (i == line.size()) break;
    std::size_t end = i;
    while (end < line.size() && !separator(line[end]))
      ++end;
    if (!visit(line.substr(i, end - i))) return;
    i = end;
  }
}
// The name line's fields (ForEachNameField), at most |limit| of them.
std::vector<std::string_view> NameFields(std::string_view line, std::size_t limit);
// A product line's fields into |fields|: every separator ends a field, so
// empty fields keep the columns aligned; a separator at the very end adds no
// empty last field.
void SplitSkuFields(std::string_view line, std::vector<std::string_view>* fields);

class ProductFile {
 public:
  // Where a product's line lies: its text without line end (and without
  // anything behind a NUL, which ends the line as the reader takes it).
  struct Place {
    off_t offset = 0;
    uint32_t length = 0;
  };
  // A line of the walk; its text is valid until the next step.
  struct Line {
    Place place;
    std::vector<std::string_view> fields;
    // Field |column| as the line's record holds it: "NA" when the line is
    // too short. |present| tells whether the line has it.
    std::string_view Field(int column, bool* present = nullptr) const;
  };

  // Takes |fd| over (it is closed with this object) and reads its name line.
  // Null when the file has none.
  static std::unique_ptr<ProductFile> Open(int fd);
  ~ProductFile();
  ProductFile(const ProductFile&) = delete;
  ProductFile& operator=(const ProductFile&) = delete;

  // The column names, as a record names them.
  const std::vector<std::string>& names() const { return names_; }
  // This file among those opened in the process, from 1: its records' layout
  // of names, which no other file's records share.
  uint64_t serial() const { return serial_; }
  // The column of the first name equal to |name| without regard to ASCII
  // case, or -1.
  int Column(std::string_view name) const;

  // The walk's next product line: false at the end of the file. A line with
  // fewer fields than the name line has names is warned of, as the reader's
  // walk does.
  bool Next(Line* line);

  // Reads the line at |place| back into |text|. False when it can no longer
  // be read as it was walked (the file was cut short since, or the text there
  // no longer ends where the line did).
  bool Read(const Place& place, std::string* text);
  // The record of the line in |text| (which it points into: the separators
  // become NULs), one pair per name and a null pair at the end.
  void Record(std::string* text, std::vector<PAPI_Pair>* pairs) const;

 private:
  explicit ProductFile(int fd) : fd_(fd) {}
  // Reads the block from |at| on; false on a read error.
  bool Fill(off_t at);
  // Whether the block holds [at, at + length), or all of it up to the end of
  // the file.
  bool Holds(off_t at, std::size_t length) const;
  // The piece of a line at |at| (through its LF, or the longest piece the
  // reader takes of an overlong line) in the block, filled as needed; empty
  // at the end of the file.
  std::string_view PieceAt(off_t at);

  int fd_;
  uint64_t serial_ = 0;
  std::string name_line_;
  std::vector<std::string> names_;
  // The block the walk reads in, and that reading back reads ahead in.
  std::vector<char> block_;
  off_t block_offset_ = 0;  // file offset of block_[0]
  std::size_t block_size_ = 0;
  bool block_ends_file_ = false;
  off_t walk_ = 0;  // file offset of the walk's next line
  // The last line read back, to tell a walk through the lines from reading
  // single lines here and there.
  Place last_{};
};

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_PRODUCT_FILE_H_
