// Where the products of a store's product lists stand in its product
// database, kept by a process that answers one list page after another: a
// page further down a list then starts its walk at its first product
// instead of reading every product before it. What is kept is valid while
// every file the lists' order depends on keeps its identity (the product
// database, a SQLite database's write-ahead log, the product library, its
// configuration and the template set's configuration); a file changed in the
// last two seconds is never taken as unchanged. A product library's products
// are kept track of only in a SQLite file.
#ifndef STOREGEN_STOREDATA_LIST_POSITIONS_H_
#define STOREGEN_STOREDATA_LIST_POSITIONS_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "cgisupport/file_identity.h"

namespace storegen {

// The files a walk of the product database depended on, as they were.
struct ListSource {
  std::string db, lib, api_cfg, set_file;  // as named; "" for none
  FileIdentity db_id, wal_id, lib_id, api_id, api_wal_id, set_id;
  bool operator==(const ListSource& o) const = default;
};

// Fills |source| with the identities of the files now. |db_file| is the
// built-in reader's open database (its identity is taken from it), null for
// a product library. False when the files cannot vouch for the products: a
// file changed in the last two seconds, or a product library whose database
// is not a SQLite file (the database or the library's configuration).
bool CurrentListSource(const char* db, FILE* db_file, const char* lib, const char* api_cfg,
                       const std::string& set_file, ListSource* source);

// The positions, in database order, of the products that a list counts (those
// with a page template), each the walk position to go on from to retrieve it.
class ListPositions {
 public:
  // The database's first product: retrieved as the walk's first item.
  static constexpr int32_t kFirst = INT32_MIN;

  // Appends a product; |category| is its "TILLBOXCATEGORY", null when it has
  // none (a product that belongs to every category).
  void Add(int32_t before, const char* category);
  // The positions of the products a list of |category| shows (null or "":
  // every product), in order. The vector stays as it is while this object
  // lives.
  const std::vector<int32_t>& Of(const char* category);

  // False: the walk met products whose template choice reports something,
  // or positions that do not grow; lists are then walked as ever.
  bool usable = true;

 private:
  std::vector<int32_t> before_;
  std::vector<int32_t> category_;  // index into names_; -1: none
  std::vector<std::string> names_;
  std::unordered_map<std::string, int32_t> ids_;  // lower-cased name -> index
  std::unordered_map<std::string, std::vector<int32_t>> lists_;
};

// Whether this process keeps list positions between requests (a process
// that answers one request only does not: the walk it saves costs more than
// the one it would make).
void SetListPositionsKept(bool kept);
bool ListPositionsKept();

// The positions kept for |source|, or null. A walk that follows them holds
// them: they stay while it does, also when they are no longer kept.
std::shared_ptr<ListPositions> KeptListPositions(const ListSource& source);
// Keeps |positions| for |source| (a few sources at most: the oldest is
// dropped) and returns the kept copy.
std::shared_ptr<ListPositions> KeepListPositions(const ListSource& source, ListPositions positions);
// Forgets every kept position.
void ForgetListPositions();

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_LIST_POSITIONS_H_
