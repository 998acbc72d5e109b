// An index from the SKUs of a large text product database to where their
// lines lie, so that a single lookup reads the line it needs instead of the
// file up to it: "-p" costs the same for the last product as for the first.
//
// The index is kept in a file beside the database, named as the database with
// ".sku-index" added, and stands for one version of the database: its device,
// inode, size and modification and status-change times (FileIdentity). A
// lookup in a database whose identity differs from its index's builds the
// index anew and renames it into place from a temporary file, as pages are
// written. A database changed in the last two seconds is neither indexed nor
// looked up by its index (its times may stay the same through a further
// change): lookups scan it. So does a lookup that cannot write the index (the
// database's directory is read-only to it); a process that then looks up in
// the same version of the database again builds the index in its memory.
// The indexes a process used are kept (mapped) and checked against the
// database's identity at every lookup, so a long-running process reads an
// index once per version of its database. Not reentrant.
#ifndef STOREGEN_STOREDATA_SKU_INDEX_H_
#define STOREGEN_STOREDATA_SKU_INDEX_H_

#include <sys/types.h>

#include <string>
#include <string_view>

namespace storegen {

enum class SkuIndexAnswer {
  kFound,    // the line was found by the index
  kMissing,  // no line has the SKU
  kNoIndex,  // no index could be used: scan the file
};

// Looks |sku| up in the index of the database |db|, open as |fd|, whose name
// line ends at byte |start|: the first piece behind it, as LineScanner cuts
// the file for the product reader's lines of kProductLineSize bytes, whose
// first field equals |sku| without regard to ASCII case. kFound puts the
// piece (with its line end) in |*piece| and its offset in |*offset|.
SkuIndexAnswer FindInSkuIndex(std::string_view db, int fd, off_t start, const char* sku,
                              std::string* piece, off_t* offset);

// Where the index of the database |db| is kept.
std::string SkuIndexPath(std::string_view db);

// Forgets the indexes this process keeps.
void ForgetSkuIndexes();

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_SKU_INDEX_H_
