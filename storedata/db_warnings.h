// Warnings about product and category database lines that the reader takes
// without complaint but that are seldom meant: a line with fewer fields than
// the name line has names, whose missing values read as "NA".
#ifndef STOREGEN_STOREDATA_DB_WARNINGS_H_
#define STOREGEN_STOREDATA_DB_WARNINGS_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <string_view>

namespace storegen {

// The fields of a database line as the reader splits it (TAB, CR and LF
// each end a field; a separator at the very end adds none).
std::size_t LineFieldCount(std::string_view line);

// Warns, once per line, that the line |line| just read from |fp| (the
// stream stands behind it) has |fields| fields where the name line has
// |names|; |first_missing| is the name of the first column it lacks.
void WarnShortLine(FILE* fp, std::string_view line, std::size_t fields, std::size_t names,
                   std::string_view first_missing);
// The same for the line of the file open as |fd| that ends at byte |end|
// (behind its line end).
void WarnShortLine(int fd, off_t end, std::string_view line, std::size_t fields, std::size_t names,
                   std::string_view first_missing);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_DB_WARNINGS_H_
