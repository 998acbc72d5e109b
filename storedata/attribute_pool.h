// The attribute database's in-memory record and its line format, shared by
// the pool operations and the file reader/writer of the storedata module.
#ifndef STOREGEN_STOREDATA_ATTRIBUTE_POOL_H_
#define STOREGEN_STOREDATA_ATTRIBUTE_POOL_H_

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace storegen {

// One attribute. Lists keep their elements in place, so the pointers the PTR
// operations give out stay valid while other attributes and values change.
struct AttributeNode {
  int32_t index = 0;
  int32_t type = 0;
  std::optional<std::string> label;  // absent when the line had no third field
  std::list<std::string> values;     // file order; an emptied value stays ""
};

using AttributeIter = std::list<AttributeNode>::iterator;

// |attributes| is changed only through InsertAttributeInOrder and
// EraseAttribute, which keep |first_of_index| in step with it: a database of
// many lines is read, and its attributes found by index, in logarithmic time
// per attribute.
struct AttributePool {
  std::string file_name;
  uint64_t serial = 0;  // this pool among those opened in the process, from 1
  bool modified = false;
  std::list<AttributeNode> attributes;              // ascending index; equal ones newest first
  std::map<int32_t, AttributeIter> first_of_index;  // the first attribute of each index
};

// Inserts |node| before the first attribute whose index is >= its own.
void InsertAttributeInOrder(AttributePool& pool, AttributeNode node);
// The first attribute with |index|, or null.
AttributeNode* FindAttribute(AttributePool& pool, int32_t index);
// Unlinks and releases the attribute at |it|.
void EraseAttribute(AttributePool& pool, AttributeIter it);

// Splits a value-list field: "," separates, "\," is a literal comma (and the
// byte after it is never a separator), a trailing "," adds an empty value.
std::list<std::string> ParseValueList(std::string_view field);

// Parses one line of the file into |node| (missing fields stay 0 / absent).
void ParseAttributeLine(std::string_view line, AttributeNode* node);

// The line written for |node|: "index\ttype\tlabel\t" + values + "\n".
std::string FormatAttributeLine(const AttributeNode& node);

// Reads the file into |pool| (a missing file leaves it empty). False when
// memory runs out.
bool ReadAttributeFile(AttributePool* pool);

// Writes every attribute with a non-zero index to the pool's file through a
// temporary file in the same directory. False when it cannot be written; the
// old file is then left as it was.
bool WriteAttributeFile(const AttributePool& pool);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_ATTRIBUTE_POOL_H_
