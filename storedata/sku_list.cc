#include "storedata/sku_list.h"

#include <fcntl.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "cgisupport/config_hints.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"  // VerbosePrintf
#include "pagegen/filelist/file_list.h"
#include "storedata/list_positions.h"
#include "storedata/product_api.h"
#include "storedata/product_db.h"
#include "storedata/product_file.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr int kTemplateSize = 256;
constexpr int kDisplayNameSize = 2048;

// One product-API connection; ended (PAPI_Cleanup) at the latest when it goes
// out of scope.
class Connection {
 public:
  Connection(const char* db, const char* store_cfg, const char* api_cfg, const char* cart_dir)
      : db_(db), store_cfg_(store_cfg), api_cfg_(api_cfg), cart_dir_(cart_dir) {
    if (pdbInit != nullptr) h_ = pdbInit(kPapiKey, db_, store_cfg_, api_cfg_, cart_dir_);
  }
  // The built-in reader's text file, which the list reads itself.
  bool built_in() const {
    return pdbInit == &PAPI_Initialization && pdbRetrieveFirstItem == &PAPI_RetrieveFirstItem &&
           pdbRetrieveNextItem == &PAPI_RetrieveNextItem && pdbRelease == &PAPI_ReleaseInfo;
  }
  // The built-in reader's walk hands out records in one block each, which
  // the list keeps as they are.
  bool blocks() const {
    return pdbRetrieveFirstItem == &PAPI_RetrieveFirstItem &&
           pdbRetrieveNextItem == &PAPI_RetrieveNextItem && pdbRelease == &PAPI_ReleaseInfo;
  }
  // A descriptor of its own on the built-in reader's file, or -1.
  int DuplicateFd() const { return fcntl(ProductDbFd(h_), F_DUPFD_CLOEXEC, 0); }
  ~Connection() { End(); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  bool ok() const { return h_ != nullptr; }
  // The built-in reader's open database, else null.
  FILE* file() const { return blocks() ? static_cast<FILE*>(h_) : nullptr; }
  void End() {
    if (h_ != nullptr) pdbCleanup(h_, kPapiKey, db_, store_cfg_, api_cfg_, cart_dir_);
    h_ = nullptr;
  }
  PAPI_Pair* First(int32_t* position) {
    if (blocks()) return RetrieveFirstItemBlock(h_, position);
    return pdbRetrieveFirstItem(h_, kPapiKey, 1, db_, store_cfg_, api_cfg_, cart_dir_, position,
                                nullptr);
  }
  PAPI_Pair* Next(int32_t* position) {
    if (blocks()) return RetrieveNextItemBlock(h_, position);
    return pdbRetrieveNextItem(h_, kPapiKey, 1, db_, store_cfg_, api_cfg_, cart_dir_, position,
                               nullptr);
  }
  // Next, for an item that is only decided on (its template and category):
  // from the built-in reader, a record of those columns only.
  PAPI_Pair* NextDeciding(int32_t* position) {
    if (blocks())
      return RetrieveNextItemColumns(h_, position, {"TILLBOXTEMPLATE", "TILLBOXCATEGORY"});
    return Next(position);
  }
  PAPI_Pair* Retrieve(const char* sku) {
    return pdbRetrieve(h_, kPapiKey, sku, 1, db_, store_cfg_, api_cfg_, cart_dir_, nullptr);
  }
  void Release(PAPI_Pair* record) {
    if (record != nullptr) pdbRelease(h_, kPapiKey, "", record);
  }

 private:
  const char* db_;
  const char* store_cfg_;
  const char* api_cfg_;
  const char* cart_dir_;
  void* h_ = nullptr;
};

// The record currently retrieved: given back to the connection unless taken.
class Item {
 public:
  // |block|: the record is one block (Connection::blocks), freed as such.
  Item(Connection* conn, PAPI_Pair* record, bool block = false)
      : conn_(conn), record_(record), block_(block) {}
  ~Item() { Release(); }
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;

  PAPI_Pair* get() const { return record_; }
  explicit operator bool() const { return record_ != nullptr; }
  void Release() {
    if (block_) {
      FreeProdRecord(record_);
    } else {
      conn_->Release(record_);
    }
    record_ = nullptr;
  }
  // Gives the current record back and holds |record| instead.
  void Reset(PAPI_Pair* record) {
    Release();
    record_ = record;
  }
  // Gives the current record back before retrieving the next one.
  void Advance(int32_t* position) { Reset(conn_->Next(position)); }
  // The generator's own copy of the record (see CopyProdRecord); the
  // original goes back to the connection. Null when memory runs out.
  PAPI_Pair* TakeCopy() {
    if (block_) return std::exchange(record_, nullptr);
    PAPI_Pair* copy = CopyProdRecord(record_);
    Release();
    return copy;
  }

 private:
  Connection* conn_;
  PAPI_Pair* record_;
  bool block_;
};

unsigned long g_open_failures = 0;

void ReportOpenFailed(const char* db) {
  const int error = errno;
  ++g_open_failures;
  std::string detail = "cannot open the product database";
  detail += hProdApiLib != nullptr ? std::string(" through the product library")
                                   : std::string(": ") + std::strerror(error);
  ReportError({db}, detail, "Error opening database\n");
}

// The template file of the set's first default product page, read once per
// build.
struct DefaultTemplate {
  bool found = false;
  char szDefaultProdPageTmplt[kTemplateSize] = {};
};

DefaultTemplate ReadDefaultTemplate(const TemplateSet* set) {
  DefaultTemplate result;
  if (set == nullptr) return result;
  std::string name(kDisplayNameSize, '\0');
  result.found = PG_TpltGetDisplayName(set, "DefaultProductPage", name.data(), kDisplayNameSize,
                                       kKindDefaultProductPage) == 1 &&
                 PG_TpltGetTemplateFile(set, name.c_str(), result.szDefaultProdPageTmplt,
                                        kTemplateSize, kKindDefaultProductPage) == 1;
  return result;
}

// The template set's configuration file, and the line that names |entry|.
Where SetEntry(const TemplateSet* set, std::string_view entry) {
  Where where{set != nullptr ? set->file_name : ""};
  if (!where.file.empty() && !entry.empty())
    where.line = ConfigValueLine(where.file.c_str(), entry);
  return where;
}

bool IsValue(const char* value) {
  return value != nullptr && value[0] != '\0' && strcasecmp(value, "NA") != 0;
}

// Chooses the product's page template: the product page its "TILLBOXTEMPLATE"
// value |display_name| (null: it has none) names, else the default product
// page. Returns 0 (the product is left out) when neither exists or the
// template is empty; the latter is recorded with -15 under |sku| in *errors
// (when |errors| is not null). With |noisy|, nothing is reported or
// recorded: *noisy is set where something would be.
int ChooseTemplate(const TemplateSet* set, const char* display_name, const char* sku,
                   const DefaultTemplate& fallback, std::string* tmplt, FileList** errors,
                   bool* noisy = nullptr) {
  char named[kTemplateSize];
  const char* page = "DefaultProductPage";
  if (set != nullptr && display_name != nullptr &&
      PG_TpltGetTemplateFile(set, display_name, named, sizeof named, kKindProductPage) == 1) {
    *tmplt = named;
    page = display_name;
  } else {
    if (IsValue(display_name) && noisy != nullptr) {
      *noisy = true;
    } else if (IsValue(display_name) &&
               FirstTime(std::string("TILLBOXTEMPLATE\t") + display_name)) {
      ReportWarning(SetEntry(set, ""),
                    std::string("TILLBOXTEMPLATE \"") + display_name + "\" of product \"" + sku +
                        "\" is not a ProductPage of the template set; " +
                        (fallback.found ? "the DefaultProductPage is used" : "it is left out"));
    }
    if (!fallback.found) {
      if (noisy != nullptr) {
        *noisy = true;
        return 0;
      }
      ReportError(SetEntry(set, ""),
                  "the template set has no DefaultProductPage, so products whose "
                  "TILLBOXTEMPLATE names none of its ProductPage entries are left out",
                  "Error resolving template display name\n");
      return 0;
    }
    *tmplt = fallback.szDefaultProdPageTmplt;
  }
  if (tmplt->empty()) {
    if (noisy != nullptr) {
      *noisy = true;
      return 0;
    }
    ReportError(SetEntry(set, page),
                std::string("the product page \"") + page +
                    "\" names no template file, so its products have no page",
                "No template specified, skipping sku %s\n", sku);
    if (errors != nullptr) FileListAdd(errors, sku, kNoTemplateForProduct);
    return 0;
  }
  return 1;
}

// A product without "TILLBOXCATEGORY" belongs to every category.
bool InCategory(const char* own, const char* category) {
  return category == nullptr || category[0] == '\0' || own == nullptr ||
         strcasecmp(own, category) == 0;
}

const char* ValueOf(const PAPI_Pair* record, const char* name) {
  const PAPI_Pair* pair = FindProdAttr(record, name);
  return pair != nullptr ? pair->value : nullptr;
}

// A node holding copies of |sku|, |tmplt| and |item|'s record (the record
// itself goes back to the connection), or null when memory runs out.
SkuList* NewRecordNode(const char* sku, const std::string& tmplt, Item* item) {
  SkuList* node = static_cast<SkuList*>(std::calloc(1, sizeof(SkuList)));
  if (node == nullptr) return nullptr;
  node->sku = strdup(sku);
  node->tmplt = strdup(tmplt.c_str());
  // |sku| may point into the item's record: it is copied before the record
  // goes back to the connection.
  if (node->sku == nullptr || node->tmplt == nullptr ||
      (node->record = item->TakeCopy()) == nullptr) {
    FreeSkuList(node);
    return nullptr;
  }
  return node;
}

// What a list needs to know of a product to take it: its "SKU",
// "TILLBOXTEMPLATE" and "TILLBOXCATEGORY" values, each null when its record
// has no such attribute.
struct Facts {
  const char* sku;
  const char* display_name;
  const char* category;
};

// The products of a product library (or of the built-in reader's entry
// points), with their records.
class RecordWalk {
 public:
  explicit RecordWalk(Connection* conn) : item_(conn, conn->First(&position_), conn->blocks()) {}
  bool valid() const { return static_cast<bool>(item_); }
  void Advance() { item_.Advance(&position_); }
  Facts facts() const {
    return {ValueOf(item_.get(), "SKU"), ValueOf(item_.get(), "TILLBOXTEMPLATE"),
            ValueOf(item_.get(), "TILLBOXCATEGORY")};
  }
  SkuList* TakeNode(const char* sku, const std::string& tmplt) {
    return NewRecordNode(sku, tmplt, &item_);
  }
  void Finish() { item_.Release(); }

 private:
  int32_t position_ = 0;
  Item item_;
};

}  // namespace

// The nodes of a list read from the built-in reader's text file, with their
// texts: where its line lies stands in for each product's record.
struct SkuListFile {
  struct Node : SkuList {
    ProductFile::Place place;
    const char* category;  // null when the file has no such column
  };

  std::unique_ptr<ProductFile> file;
  std::string db;  // its path, for messages
  int sku_column = -1;
  std::vector<std::unique_ptr<Node[]>> nodes;
  std::size_t nodes_left = 0;  // unused nodes of the last block
  std::vector<std::unique_ptr<char[]>> texts;
  char* text_at = nullptr;  // the unused rest of the last text block
  std::size_t text_left = 0;
  std::unordered_set<std::string_view> interned;  // templates and categories

  Node* NewNode() {
    constexpr std::size_t kBlock = 4096;
    if (nodes_left == 0) {
      nodes.push_back(std::make_unique<Node[]>(kBlock));
      nodes_left = kBlock;
    }
    Node* node = &nodes.back()[kBlock - nodes_left--];
    node->file = this;
    return node;
  }
  // A copy of |text| that lives as long as the list.
  char* Keep(std::string_view text) {
    constexpr std::size_t kBlock = 64 * 1024;
    if (text_left < text.size() + 1) {
      const std::size_t size = std::max(kBlock, text.size() + 1);
      texts.push_back(std::make_unique<char[]>(size));
      text_at = texts.back().get();
      text_left = size;
    }
    char* copy = text_at;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    text_at += text.size() + 1;
    text_left -= text.size() + 1;
    return copy;
  }
  // Keep for texts that many products share.
  const char* Intern(std::string_view text) {
    auto it = interned.find(text);
    if (it == interned.end()) it = interned.insert(std::string_view(Keep(text), text.size())).first;
    return it->data();
  }
};

namespace {

// The products of the built-in reader's text file, walked by the list
// itself: their nodes keep where their lines lie instead of their records.
class LineWalk {
 public:
  LineWalk(std::unique_ptr<ProductFile> file, const char* db)
      : list_(std::make_unique<SkuListFile>()) {
    list_->file = std::move(file);
    list_->db = db;
    list_->sku_column = list_->file->Column("SKU");
    template_column_ = list_->file->Column("TILLBOXTEMPLATE");
    category_column_ = list_->file->Column("TILLBOXCATEGORY");
    Advance();
  }
  LineWalk(const LineWalk&) = delete;
  LineWalk& operator=(const LineWalk&) = delete;

  bool valid() const { return valid_; }
  void Advance() {
    valid_ = list_->file->Next(&line_);
    if (!valid_) return;
    Take(list_->sku_column, &sku_);
    Take(template_column_, &display_name_);
    Take(category_column_, &category_);
  }
  Facts facts() const {
    return {Of(list_->sku_column, sku_), Of(template_column_, display_name_),
            Of(category_column_, category_)};
  }
  SkuList* TakeNode(const char* sku, const std::string& tmplt) {
    SkuListFile::Node* node = list_->NewNode();
    node->sku = list_->Keep(sku);
    node->tmplt = const_cast<char*>(list_->Intern(tmplt));
    node->record = nullptr;
    node->next = nullptr;
    node->place = line_.place;
    node->category = category_column_ >= 0 ? list_->Intern(category_) : nullptr;
    return node;
  }
  void Finish() {}
  // The nodes live as long as the list made of them: FreeSkuList ends them.
  SkuList* Keep(SkuList* head) {
    if (head != nullptr) list_.release();
    return head;
  }

 private:
  void Take(int column, std::string* value) {
    if (column >= 0) value->assign(line_.Field(column));
  }
  static const char* Of(int column, const std::string& value) {
    return column >= 0 ? value.c_str() : nullptr;
  }

  std::unique_ptr<SkuListFile> list_;
  int template_column_;
  int category_column_;
  ProductFile::Line line_;
  bool valid_ = false;
  std::string sku_, display_name_, category_;
};

// BuildAllSkuList's walk over |walk|, which stands on the first product.
template <typename Walk>
SkuList* CollectSkuList(Walk& walk, TemplateSet* set, const char* category, const char* first_index,
                        int page_flag, FileList** errors) {
  // A product page's template, known once for each TILLBOXTEMPLATE value
  // that led to one without a message.
  DefaultTemplate fallback = ReadDefaultTemplate(set);
  std::unordered_map<std::string, std::string> chosen;
  auto choose = [&](const Facts& facts, const char* sku, std::string* tmplt) {
    const std::string key =
        facts.display_name != nullptr ? std::string(facts.display_name) + '+' : std::string("-");
    if (auto it = chosen.find(key); it != chosen.end()) {
      *tmplt = it->second;
      return 1;
    }
    const int ok = ChooseTemplate(set, facts.display_name, sku, fallback, tmplt, errors);
    if (ok) chosen.emplace(key, *tmplt);
    return ok;
  };

  // Pass over the products of earlier pages: only those that would be listed
  // count. The SKU is not taken yet, so an empty template is reported under "".
  int skip = first_index != nullptr && first_index[0] != '\0' ? std::atoi(first_index) : 0;
  for (int passed = 0; skip > 0; walk.Advance()) {
    if (!walk.valid()) {
      VerbosePrintf("No more products for product list\n");
      return nullptr;
    }
    std::string tmplt;
    const Facts facts = walk.facts();
    if (!choose(facts, "", &tmplt) || !InCategory(facts.category, category)) continue;
    if (passed == skip) break;
    ++passed;
  }

  // One page more than the page size proves that a further page exists.
  int32_t page_size = set != nullptr ? set->max_prod_per_page : 0;
  SkuList* head = nullptr;
  SkuList** tail = &head;
  int32_t taken = 0;
  for (; walk.valid(); walk.Advance()) {
    if (page_flag != 0 && page_size > 0 && page_size < taken) break;
    const Facts facts = walk.facts();
    if (!InCategory(facts.category, category)) continue;
    if (facts.sku == nullptr) continue;
    std::string tmplt;
    if (!choose(facts, facts.sku, &tmplt)) continue;
    SkuList* node = walk.TakeNode(facts.sku, tmplt);
    if (node == nullptr) {
      ReportOutOfMemory();
      walk.Finish();
      FreeSkuList(head);
      return nullptr;
    }
    *tail = node;
    tail = &node->next;
    ++taken;
  }
  walk.Finish();
  return head;
}

void ReportNoProduct(const char* db) {
  ReportError({db},
              "the product database holds no product: its first line names the columns, "
              "and each further line is one product",
              "Error reading database\n");
}

// BuildAllSkuList for a static run: the whole list, at once. The nodes of a
// list of the built-in reader's text file keep where each line lies.
SkuList* BuildWholeSkuList(const char* db, const char* store_cfg, const char* api_cfg,
                           const char* cart_dir, TemplateSet* set, const char* category,
                           const char* first_index, FileList** errors) {
  Connection conn(db, store_cfg, api_cfg, cart_dir);
  if (!conn.ok()) {
    ReportOpenFailed(db);
    return nullptr;
  }
  if (conn.built_in()) {
    // The walk reads the file itself; the connection is not needed further.
    const int fd = conn.DuplicateFd();
    conn.End();
    std::unique_ptr<ProductFile> file = fd >= 0 ? ProductFile::Open(fd) : nullptr;
    try {
      std::optional<LineWalk> walk;
      if (file != nullptr) walk.emplace(std::move(file), db);
      if (!walk || !walk->valid()) {
        ReportNoProduct(db);
        return nullptr;
      }
      return walk->Keep(CollectSkuList(*walk, set, category, first_index, 0, errors));
    } catch (const std::bad_alloc&) {
      ReportOutOfMemory();
      return nullptr;
    }
  }
  RecordWalk walk(&conn);
  if (!walk.valid()) {
    conn.End();
    ReportNoProduct(db);
    return nullptr;
  }
  SkuList* head = CollectSkuList(walk, set, category, first_index, 0, errors);
  conn.End();
  return head;
}

}  // namespace

// The walk that builds a list: the open connection, the current item and
// what deciding on each product needs. A list built in part keeps it on its
// last node until the list's end is reached or the list is freed.
struct SkuListTail {
  SkuListTail(const char* db, const char* store_cfg, const char* api_cfg, const char* cart_dir)
      : db_(db),
        store_cfg_(store_cfg),
        api_cfg_(api_cfg),
        cart_dir_(cart_dir),
        conn(db_.c_str(), store_cfg_.c_str(), api_cfg_.c_str(), cart_dir_.c_str()),
        item(&conn, nullptr, conn.blocks()) {}

  // The next node of the list: the current item, or the first after it that
  // the list takes. Null at the end of the list, and when memory runs out
  // (*out_of_memory set).
  SkuList* Take(bool* out_of_memory);
  // Puts the walk at the first product of a list that passes over |skip|
  // products, from the positions kept for this database (at the end when
  // the list has no such product). False when none are kept or can be: the
  // walk then stands anywhere.
  bool SeekFromKept(int skip, const char* lib);
  // Gives the current item back and retrieves the next one the list may
  // take: the database's next, or, when the walk follows kept positions,
  // the next product of the list's category (those in between would be
  // passed over without a word).
  void Step();

 private:
  std::string db_, store_cfg_, api_cfg_, cart_dir_;

 public:
  Connection conn;
  Item item;  // declared after |conn|: given back before the connection ends
  int32_t position = 0;
  TemplateSet* set = nullptr;
  DefaultTemplate fallback;
  std::string category;
  FileList** errors = nullptr;
  int32_t page_limit = 0;  // 0: none; else the list ends after page_limit + 1 nodes
  int32_t taken = 0;
  bool advance = false;                 // the current item was taken: Take goes on after it
  std::string name_line;                // the built-in reader's name line of this walk
  std::shared_ptr<ListPositions> kept;  // the positions followed, or null
  const std::vector<int32_t>* members = nullptr;  // those of the list's category
  std::size_t member = 0;                         // the current item's
};

namespace {

// Walks the whole database and notes where each product that a list counts
// stands.
ListPositions WalkPositions(SkuListTail* walk) {
  ListPositions positions;
  bool noisy = false;
  int32_t before = ListPositions::kFirst;
  for (walk->item.Reset(walk->conn.First(&walk->position)); walk->item;
       walk->item.Reset(walk->conn.NextDeciding(&walk->position))) {
    if (before != ListPositions::kFirst && walk->position <= before) positions.usable = false;
    std::string tmplt;
    if (ChooseTemplate(walk->set, ValueOf(walk->item.get(), "TILLBOXTEMPLATE"), "", walk->fallback,
                       &tmplt, nullptr, &noisy)) {
      const PAPI_Pair* own = FindProdAttr(walk->item.get(), "TILLBOXCATEGORY");
      positions.Add(before, own != nullptr ? own->value : nullptr);
    }
    before = walk->position;
  }
  if (noisy) positions.usable = false;
  return positions;
}

// While it lives, the built-in reader walks with |walk|'s name line: another
// walk (a category list's) may have read its own since.
class WalkNameLineScope {
 public:
  explicit WalkNameLineScope(const SkuListTail& walk) : swapped_(walk.conn.file() != nullptr) {
    if (!swapped_) return;
    saved_ = WalkNameLine();
    SetWalkNameLine(walk.name_line);
  }
  ~WalkNameLineScope() {
    if (swapped_) SetWalkNameLine(saved_);
  }
  WalkNameLineScope(const WalkNameLineScope&) = delete;
  WalkNameLineScope& operator=(const WalkNameLineScope&) = delete;

 private:
  bool swapped_;
  std::string saved_;
};

}  // namespace

void SkuListTail::Step() {
  if (members != nullptr) {
    if (++member >= members->size()) {
      item.Reset(nullptr);
      return;
    }
    position = (*members)[member];
  }
  item.Advance(&position);
}

SkuList* SkuListTail::Take(bool* out_of_memory) {
  if (std::exchange(advance, true)) Step();
  for (; item; Step()) {
    if (page_limit > 0 && page_limit < taken) return nullptr;
    if (!InCategory(ValueOf(item.get(), "TILLBOXCATEGORY"), category.c_str())) continue;
    const PAPI_Pair* sku = FindProdAttr(item.get(), "SKU");
    if (sku == nullptr || sku->value == nullptr) continue;
    std::string tmplt;
    if (!ChooseTemplate(set, ValueOf(item.get(), "TILLBOXTEMPLATE"), sku->value, fallback, &tmplt,
                        errors))
      continue;
    SkuList* node = NewRecordNode(sku->value, tmplt, &item);
    if (node == nullptr) {
      *out_of_memory = true;
      return nullptr;
    }
    ++taken;
    return node;
  }
  return nullptr;
}

bool SkuListTail::SeekFromKept(int skip, const char* lib) {
  ListSource source;
  if (!CurrentListSource(db_.c_str(), conn.file(), lib, api_cfg_.c_str(),
                         set != nullptr ? set->file_name : "", &source)) {
    return false;
  }
  std::shared_ptr<ListPositions> found = KeptListPositions(source);
  if (found == nullptr) found = KeepListPositions(source, WalkPositions(this));
  // A database without products is left to the walk, which reports it.
  if (!found->usable || found->Of(nullptr).empty()) return false;
  kept = std::move(found);
  members = &kept->Of(category.c_str());
  member = static_cast<std::size_t>(skip);
  if (member >= members->size()) {
    item.Reset(nullptr);  // the list is empty
    return true;
  }
  // The first item reads the name line; the list's first product may be
  // further on.
  item.Reset(conn.First(&position));
  if ((*members)[member] != ListPositions::kFirst) {
    position = (*members)[member];
    item.Advance(&position);
  }
  return true;
}

SkuList* NewSkuNode() {
  return static_cast<SkuList*>(std::calloc(1, sizeof(SkuList)));
}

bool SkuRecord::Read(const SkuList* node, const PAPI_Pair** record) {
  *record = nullptr;
  layout_ = 0;
  if (node == nullptr) return true;
  const SkuListFile* list = node->file;
  if (list == nullptr) {
    *record = node->record;
    return true;
  }
  const auto* line = static_cast<const SkuListFile::Node*>(node);
  // The line must still be the product's: the same length, the same SKU.
  if (!list->file->Read(line->place, &text_)) {
    text_.clear();
  }
  list->file->Record(&text_, &pairs_);
  const std::size_t column = static_cast<std::size_t>(list->sku_column);
  if (text_.size() != line->place.length || std::strcmp(pairs_[column].value, node->sku) != 0) {
    if (FirstTime("product database changed\t" + list->db)) {
      ReportError({list->db},
                  "the product database changed while the run was writing its pages, so "
                  "the pages of the products it moved are not written; run again",
                  nullptr);
    }
    return false;
  }
  *record = pairs_.data();
  layout_ = list->file->serial();
  return true;
}

const char* SkuCategory(const SkuList* node) {
  if (node->file != nullptr) return static_cast<const SkuListFile::Node*>(node)->category;
  return ValueOf(node->record, "TILLBOXCATEGORY");
}

SkuList* BuildAllSkuList(const char* db, const char* store_cfg, const char* api_cfg,
                         const char* cart_dir, TemplateSet* set, const char* category,
                         const char* first_index, int page_flag, FileList** errors) {
  if (page_flag == 0)
    return BuildWholeSkuList(db, store_cfg, api_cfg, cart_dir, set, category, first_index, errors);
  // A dynamic request's list, of one page, is built from the products' records.
  auto walk = std::make_unique<SkuListTail>(db, store_cfg, api_cfg, cart_dir);
  if (!walk->conn.ok()) {
    ReportOpenFailed(db);
    return nullptr;
  }
  walk->set = set;
  walk->fallback = ReadDefaultTemplate(set);
  walk->category = category != nullptr ? category : "";
  walk->errors = errors;
  // One page more than the page size proves that a further page exists.
  const int32_t page_size = set != nullptr ? set->max_prod_per_page : 0;
  walk->page_limit = page_size;
  // The page shows a few products from the list's start on: the rest is made
  // as the page reaches it. Verbose messages keep their place before the
  // page.
  const bool in_part = !Verbose();
  int skip = first_index != nullptr && first_index[0] != '\0' ? std::atoi(first_index) : 0;
  const char* lib = hProdApiLib != nullptr ? PageGenState.szAPILib : "";
  if (in_part && ListPositionsKept() && walk->SeekFromKept(std::max(skip, 0), lib)) {
    skip = 0;
  } else {
    walk->item.Reset(walk->conn.First(&walk->position));
    if (!walk->item) {
      walk.reset();
      ReportError({db},
                  "the product database holds no product: its first line names the columns, "
                  "and each further line is one product",
                  "Error reading database\n");
      return nullptr;
    }
  }

  // Pass over the products of earlier pages: only those that would be listed
  // count. The SKU is not taken yet, so an empty template is reported under "".
  // Those passed over are read with the columns deciding on them only; the
  // list's first product is then read again, whole.
  int32_t before = 0;  // where the current item was read from
  bool partial = false;
  for (int passed = 0; skip > 0;) {
    if (!walk->item) {
      VerbosePrintf("No more products for product list\n");
      return nullptr;
    }
    std::string tmplt;
    const bool counts = ChooseTemplate(set, ValueOf(walk->item.get(), "TILLBOXTEMPLATE"), "",
                                       walk->fallback, &tmplt, errors) &&
                        InCategory(ValueOf(walk->item.get(), "TILLBOXCATEGORY"), category);
    if (counts && passed == skip) {
      if (partial) {
        walk->position = before;
        walk->item.Advance(&walk->position);
      }
      break;
    }
    if (counts) ++passed;
    before = walk->position;
    walk->item.Reset(walk->conn.NextDeciding(&walk->position));
    partial = walk->conn.blocks();
  }

  SkuList* head = nullptr;
  SkuList** tail = &head;
  bool out_of_memory = false;
  while (SkuList* node = walk->Take(&out_of_memory)) {
    *tail = node;
    tail = &node->next;
    if (!in_part) continue;
    walk->name_line = WalkNameLine();
    node->tail = walk.release();
    return head;
  }
  if (out_of_memory) {
    ReportOutOfMemory();
    walk.reset();
    FreeSkuList(head);
    return nullptr;
  }
  return head;
}

const SkuList* NextSkuNode(const SkuList* node) {
  if (node->next != nullptr || node->tail == nullptr) return node->next;
  // The list grows behind its last node; the nodes before stay as they are.
  SkuList* last = const_cast<SkuList*>(node);
  std::unique_ptr<SkuListTail> walk(std::exchange(last->tail, nullptr));
  bool out_of_memory = false;
  SkuList* next;
  {
    const WalkNameLineScope scope(*walk);
    next = walk->Take(&out_of_memory);
  }
  // A page that cannot have its next product ends its list there.
  if (out_of_memory) ReportOutOfMemory();
  if (next != nullptr) next->tail = walk.release();
  last->next = next;
  return next;
}

SkuList* FindSkuData(const char* sku, const char* db, const char* store_cfg, const char* api_cfg,
                     const char* cart_dir, TemplateSet* set, FileList** errors) {
  if (sku == nullptr) return nullptr;
  Connection conn(db, store_cfg, api_cfg, cart_dir);
  if (!conn.ok()) {
    ReportOpenFailed(db);
    return nullptr;
  }
  DefaultTemplate fallback = ReadDefaultTemplate(set);
  Item item(&conn, conn.Retrieve(sku));
  if (!item) {
    ReportError({db}, std::string("no product \"") + sku + "\" in the product database", nullptr);
    return nullptr;
  }
  std::string tmplt;
  if (!ChooseTemplate(set, ValueOf(item.get(), "TILLBOXTEMPLATE"), sku, fallback, &tmplt, errors))
    return nullptr;
  SkuList* node = NewRecordNode(sku, tmplt, &item);
  if (node == nullptr) ReportOutOfMemory();
  return node;
}

int FillSkuData(SkuList* list, const char* db, const char* store_cfg, const char* api_cfg,
                const char* cart_dir, TemplateSet* set, FileList** errors) {
  int result = kOk;
  for (SkuList* node = list; node != nullptr; node = node->next) {
    if (node->sku == nullptr) continue;
    SkuList* found = FindSkuData(node->sku, db, store_cfg, api_cfg, cart_dir, set, errors);
    if (found == nullptr) {
      result = kFileNotFound;
      continue;
    }
    std::swap(node->tmplt, found->tmplt);
    std::swap(node->record, found->record);
    FreeSkuList(found);
  }
  return result;
}

int CopySkuData(SkuList* target, const SkuList* source) {
  for (SkuList* node = target; node != nullptr; node = node->next) {
    if (node->sku == nullptr) continue;
    const SkuList* match = source;
    while (match != nullptr && (match->sku == nullptr || std::strcmp(match->sku, node->sku) != 0)) {
      match = match->next;
    }
    if (match == nullptr) {
      ReportWarning({PageGenState.szDbName},
                    std::string("no product \"") + node->sku + "\", named on the command line");
      continue;
    }
    char* tmplt = nullptr;
    if (match->tmplt != nullptr && (tmplt = strdup(match->tmplt)) == nullptr) return 0;
    // A record that cannot be read back leaves the node without one.
    SkuRecord source_record;
    const PAPI_Pair* original = nullptr;
    source_record.Read(match, &original);
    PAPI_Pair* record = nullptr;
    if (original != nullptr && (record = CopyProdRecord(original)) == nullptr) {
      std::free(tmplt);
      return 0;
    }
    std::free(node->tmplt);
    FreeProdRecord(node->record);
    node->tmplt = tmplt;
    node->record = record;
  }
  return 1;
}

void FreeSkuList(SkuList* list) {
  // The nodes read from a product file go with it, once the walk is done.
  std::vector<SkuListFile*> files;
  while (list != nullptr) {
    SkuList* next = list->next;
    delete list->tail;
    if (list->file != nullptr) {
      if (std::find(files.begin(), files.end(), list->file) == files.end())
        files.push_back(list->file);
    } else {
      std::free(list->sku);
      std::free(list->tmplt);
      FreeProdRecord(list->record);
      std::free(list);
    }
    list = next;
  }
  for (SkuListFile* file : files)
    delete file;
}

unsigned long ProductDatabaseOpenFailures() {
  return g_open_failures;
}

}  // namespace storegen
