#include "storedata/product_db.h"

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/diagnostics.h"
#include "cgisupport/file_identity.h"
#include "storedata/product_api.h"
#include "storedata/product_file.h"
#include "storedata/sku_index.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace std::string_literals;

using testing::ScopedTempDir;
using testing::WriteFile;
using Pairs = std::vector<std::pair<std::string, std::string>>;

// A record made of |info|'s pairs, as the API hands them out.
PAPI_Pair* TakeInfo(ProductInfo* info) {
  if (info == nullptr) return nullptr;
  auto* record = static_cast<PAPI_Pair*>(std::calloc(info->count + 1, sizeof(PAPI_Pair)));
  std::memcpy(record, info->pairs, info->count * sizeof(PAPI_Pair));
  FreeProductInfo(info, 0);
  return record;
}

// The pairs of |record|, which is released.
Pairs Take(PAPI_Pair* record) {
  Pairs pairs;
  if (record == nullptr) return pairs;
  for (PAPI_Pair* p = record; p->name != nullptr; ++p)
    pairs.emplace_back(p->name, p->value);
  storegen::PAPI_ReleaseInfo(nullptr, PAPI_ACCESS_KEY, "", record);
  return pairs;
}

// |first|, then a TAB and |prefix| followed by each number from 1 to
// |count| - 1: a line of many columns.
std::string Columns(std::string first, const std::string& prefix, int count) {
  for (int i = 1; i < count; ++i)
    first += "\t" + prefix + std::to_string(i);
  return first;
}

// Databases and the SKUs to look up in them: duplicates differing in case,
// CRLF line ends and empty lines, a NUL ending a line's text, lines longer
// than the reader's line buffer (whose pieces are lines of their own), and
// files of many blocks.
struct LookupCase {
  std::string content;
  std::vector<std::string> skus;
};
std::vector<LookupCase> LookupCases() {
  std::string many;
  for (int i = 0; i < 6000; ++i)
    many += "P" + std::to_string(i) + "\t" + std::string(60, 'v') + "\n";
  const std::string piece(2047, 'x');
  return {
      {"SKU\tN\nA1\tx\nA10\ty\na1\tz\n", {"A1", "a10", "A", "B", "A1\t", ""}},
      {"SKU\r\nA1\tx\r\nB2\r\n\r\nC3", {"b2", "C3", "c", ""}},
      {"SKU\nA1\0X\tv\nA1X\tw\n"s, {"A1", "A1X", "X"}},
      {"SKU\n" + piece + "A1\tcontinued\n" + piece.substr(1) + "\tB2\n", {"A1", "B2", "x"}},
      {"SKU\n" + many + "LAST\tend", {"P0", "P5999", "last", "P6000"}},
      {"SKU\n" + std::string(300000, 'y') + "\nZ9\tz\n", {"Z9", std::string(2047, 'y')}},
  };
}

class ProductDbTest : public ::testing::Test {
 protected:
  void Open(const std::string& content) {
    path_ = dir_.Path("products.txt");
    WriteFile(path_, content);
    h_ = PAPI_Initialization(PAPI_ACCESS_KEY, path_.c_str(), "", "", "");
    ASSERT_NE(h_, nullptr);
  }
  void TearDown() override { PAPI_Cleanup(h_, PAPI_ACCESS_KEY, "", "", "", ""); }

  Pairs Lookup(const char* sku, char** names = nullptr) {
    return Take(PAPI_RetrieveInfo(h_, PAPI_ACCESS_KEY, sku, 1, "", "", "", "", names));
  }
  Pairs First() {
    return Take(
        PAPI_RetrieveFirstItem(h_, PAPI_ACCESS_KEY, 1, "", "", "", "", &position_, nullptr));
  }
  Pairs Next() {
    return Take(PAPI_RetrieveNextItem(h_, PAPI_ACCESS_KEY, 1, "", "", "", "", &position_, nullptr));
  }

  ScopedTempDir dir_;
  std::string path_;
  void* h_ = nullptr;
  int32_t position_ = -1;
};

// Short lines give "NA", empty fields stay empty, either line end; SKUs are
// found in any case and the first line wins; requested names keep the
// caller's case; at most 99 attributes are used.
TEST_F(ProductDbTest, Lookups) {
  char sku[] = "sku";
  char price[] = "PRICE";
  char colour[] = "Colour";
  char* names[] = {sku, price, colour, nullptr};
  const std::string wide = Columns("SKU", "A", 120) + "\n" + Columns("X1", "", 120) + "\n";
  Pairs columns;
  for (int i = 0; i < 99; ++i)
    columns.emplace_back(i == 0 ? "SKU" : "A" + std::to_string(i),
                         i == 0 ? "X1" : std::to_string(i));
  struct Case {
    std::string content;
    const char* sku;
    char** names;
    Pairs want;
  } cases[] = {
      {"SKU\tName\t\tPrice\nA1\tShirt\n",
       "A1",
       nullptr,
       {{"SKU", "A1"}, {"Name", "Shirt"}, {"Price", "NA"}}},
      {"SKU\tName\t\tPrice\r\nB2\t\t9.99\t\r\n",
       "b2",
       nullptr,
       {{"SKU", "B2"}, {"Name", ""}, {"Price", "9.99"}}},
      {"SKU\tName\t\tPrice\nC3\t\t\n",
       "C3",
       nullptr,
       {{"SKU", "C3"}, {"Name", ""}, {"Price", "NA"}}},
      {"SKU\tName\nA1\tShirt\n", "D4", nullptr, {}},
      {"SKU\tName\tPrice\nA1\tShirt\t5\nA1\tDuplicate\t6\n",
       "a1",
       names,
       {{"sku", "A1"}, {"PRICE", "5"}, {"Colour", "NA"}}},
      {wide, "X1", nullptr, columns},
      {"", "", nullptr, {}},
  };
  for (const auto& c : cases) {
    Open(c.content);
    EXPECT_EQ(Lookup(c.sku, c.names), c.want) << c.content.substr(0, 30);
    TearDown();
  }
  h_ = nullptr;
  EXPECT_EQ(PAPI_Initialization(PAPI_ACCESS_KEY, "/nonexistent/products.txt", "", "", ""), nullptr);
}

TEST_F(ProductDbTest, IterationSkipsEmptyLinesAndSurvivesLookups) {
  Open("SKU\tName\r\nA1\tShirt\r\n\r\n\nB2\tHat\r\nC3\tCap\r\n");
  EXPECT_EQ(First(), (Pairs{{"SKU", "A1"}, {"Name", "Shirt"}}));
  EXPECT_EQ(Lookup("C3"), (Pairs{{"SKU", "C3"}, {"Name", "Cap"}}));
  EXPECT_EQ(Next(), (Pairs{{"SKU", "B2"}, {"Name", "Hat"}}));
  EXPECT_EQ(Lookup("A1"), (Pairs{{"SKU", "A1"}, {"Name", "Shirt"}}));
  EXPECT_EQ(Next(), (Pairs{{"SKU", "C3"}, {"Name", "Cap"}}));
  EXPECT_EQ(Next(), Pairs{});
}

// Each short line of a walk is warned of with its own line number, also
// when a long line and a lookup come between two of them.
TEST_F(ProductDbTest, ShortLinesAreWarnedOfWithTheirNumbers) {
  std::string warnings;
  CaptureDiagnostics(&warnings);
  Open("SKU\tName\tPrice\nA1\tShirt\n" + std::string(1500, 'x') + "\t1\t2\nB2\t\t3\nC3\n");
  while (!(position_ < 0 ? First() : Next()).empty())
    Lookup("A1");
  ResetDiagnostics();
  EXPECT_NE(warnings.find(path_ + ":2: warning: \"A1\" has 2"), std::string::npos) << warnings;
  EXPECT_NE(warnings.find(path_ + ":5: warning: \"C3\" has 1"), std::string::npos) << warnings;
  EXPECT_EQ(warnings.find(":3:"), std::string::npos) << warnings;
}

TEST_F(ProductDbTest, NoProductsEndTheIteration) {
  Open("SKU\tName\n\n");
  EXPECT_EQ(First(), Pairs{});
}

// The product file read by the list gives the walk's records, for every kind
// of line, read back in any order.
TEST_F(ProductDbTest, ProductFileGivesTheRecordsOfTheWalk) {
  const std::string names = Columns("SKU\t\tName\tPrice", "A", 110);
  const std::string wide = Columns("W9", "", 110);
  const std::string overlong = "L1\t" + std::string(3000, 'x');
  Open(names + "\r\nA1\tShirt\r\n\r\n\nB2\t\t9.99\t\nC3\t\t\n" + wide + "\n" + overlong +
       "\nN1\tNul\0hidden\tx\nD4\tCap\t1\t2\t3"s);
  std::vector<Pairs> walk = {First()};
  while (!walk.back().empty())
    walk.push_back(Next());
  walk.pop_back();
  ASSERT_EQ(walk.size(), 8u);

  std::unique_ptr<ProductFile> file = ProductFile::Open(fcntl(ProductDbFd(h_), F_DUPFD, 0));
  ASSERT_NE(file, nullptr);
  std::vector<ProductFile::Place> places;
  ProductFile::Line line;
  while (file->Next(&line))
    places.push_back(line.place);
  ASSERT_EQ(places.size(), walk.size());
  auto read_back = [&](std::size_t i) {
    std::string text;
    std::vector<PAPI_Pair> pairs;
    EXPECT_TRUE(file->Read(places[i], &text));
    file->Record(&text, &pairs);
    Pairs got;
    for (const PAPI_Pair& p : pairs)
      if (p.name != nullptr) got.emplace_back(p.name, p.value);
    return got;
  };
  for (std::size_t i : {7, 0, 3, 4, 1, 6, 2, 5})
    EXPECT_EQ(read_back(i), walk[i]) << i;
  EXPECT_EQ(file->Column("name"), 1);
  EXPECT_EQ(file->Column("Colour"), -1);
}

TEST(ProductDb, FieldRoutines) {
  const char* line = "SKU\t\tName\tPrice";  // a run of separators is one on the name line
  EXPECT_EQ(GetAttribIndex(line, "price"), 2);
  EXPECT_EQ(GetAttribIndex(line, "Colour"), -1);
  char* value = GetAttribValue("A1\t\tShirt", 1);
  EXPECT_STREQ(value, "");
  std::free(value);
  value = GetAttribValue("A1\t\tShirt", 3);
  EXPECT_STREQ(value, "NA");
  std::free(value);

  std::vector<char*> names(150, const_cast<char*>("n"));
  names.push_back(nullptr);
  EXPECT_EQ(GetAttribCount(nullptr), -1);
  EXPECT_EQ(GetAttribCount(names.data()), 99);
  EXPECT_EQ(GetAttribCount(names.data() + 148), 2);
}

// Single lookups read the file in blocks instead of line by line through the
// stream. They must find what the line reader finds (lines cut into 2047-byte
// pieces, a NUL ending a line's text, case ignored, the first match winning),
// leave the same last line in the buffer after a miss, and leave the stream
// where the line reader would have, across block boundaries too.
TEST(ProductDb, SkuLineAsTheLineReaderFindsIt) {
  struct Found {
    int rc;
    std::string buf;
    long position;
    bool operator==(const Found&) const = default;
  };
  auto by_stream = [](FILE* fp, const char* sku) {
    char buf[kProductLineSize] = "unset";
    int rc = 0;
    while (std::fgets(buf, sizeof buf, fp) != nullptr) {
      std::string first(buf, std::strcspn(buf, psz_Tab));
      if (my_stricmp(first.c_str(), sku) == 0) {
        TrimEnd(buf);
        rc = 1;
        break;
      }
    }
    return Found{rc, buf, std::ftell(fp)};
  };
  auto by_lookup = [](FILE* fp, const char* sku) {
    char buf[kProductLineSize] = "unset";
    int rc = GetSKULine(buf, sizeof buf, fp, sku);
    return Found{rc, buf, std::ftell(fp)};
  };

  ScopedTempDir dir;
  std::string path = dir.Path("products.txt");
  for (const auto& c : LookupCases()) {
    WriteFile(path, c.content);
    for (const std::string& key : c.skus) {
      const char* sku = key.c_str();
      Found want, got;
      for (bool stream : {true, false}) {
        FILE* fp = std::fopen(path.c_str(), "r");
        ASSERT_NE(fp, nullptr);
        char name[kProductLineSize];
        ASSERT_EQ(GetNameLine(name, sizeof name, fp), 1);
        (stream ? want : got) = stream ? by_stream(fp, sku) : by_lookup(fp, sku);
        // The stream goes on from there as it would have.
        char next[16] = "";
        std::fgets(next, sizeof next, fp);
        (stream ? want : got).buf += std::string("|") + next;
        std::fclose(fp);
      }
      EXPECT_EQ(got, want) << "sku " << key.substr(0, 12) << " in " << c.content.substr(0, 24);

      // A whole lookup, which keeps a small file's text, finds the same
      // record and leaves the stream at the same place.
      FILE* fp = std::fopen(path.c_str(), "r");
      ASSERT_NE(fp, nullptr);
      char name[kProductLineSize];
      Pairs expected;
      if (GetNameLine(name, sizeof name, fp) &&
          GetSKULine(want.buf.data(), kProductLineSize, fp, sku))
        expected = Take(TakeInfo(GetProductInfoNoRead(fp, nullptr, 0, name, want.buf.c_str())));
      const long expected_position = std::ftell(fp);
      EXPECT_EQ(Take(TakeInfo(GetProductInfo(fp, sku, nullptr))), expected) << key.substr(0, 12);
      EXPECT_EQ(std::ftell(fp), expected_position) << key.substr(0, 12);
      std::fclose(fp);
    }
  }
}

// What a lookup through the SKU index of |db| gives in the file |path|: the
// line as the reader takes it, "missing", or "scan" when no index was used.
std::string IndexLookup(const std::string& path, const std::string& db, const char* sku,
                        long* position = nullptr) {
  FILE* fp = std::fopen(path.c_str(), "r");
  char name[kProductLineSize];
  if (fp == nullptr || !GetNameLine(name, sizeof name, fp)) return "no file";
  std::string piece;
  off_t offset = 0;
  const SkuIndexAnswer answer =
      FindInSkuIndex(db, fileno(fp), std::ftell(fp), sku, &piece, &offset);
  std::fclose(fp);
  if (position != nullptr) *position = static_cast<long>(offset + std::ssize(piece));
  if (answer == SkuIndexAnswer::kMissing) return "missing";
  if (answer == SkuIndexAnswer::kNoIndex) return "scan";
  TrimEnd(piece.data());
  return piece.c_str();
}

// The index finds the line the scan finds, and the stream is put behind it.
TEST(ProductDb, SkuIndexFindsWhatTheScanFinds) {
  ScopedTempDir dir;
  const std::string path = dir.Path("products.txt");
  g_settle_clock_ahead = 3;  // the files are old enough to be indexed
  for (const auto& c : LookupCases()) {
    WriteFile(path, c.content);
    for (const std::string& key : c.skus) {
      FILE* fp = std::fopen(path.c_str(), "r");
      ASSERT_NE(fp, nullptr);
      char name[kProductLineSize], line[kProductLineSize];
      ASSERT_EQ(GetNameLine(name, sizeof name, fp), 1);
      const bool found = GetSKULine(line, sizeof line, fp, key.c_str()) == 1;
      const long scan_position = std::ftell(fp);
      std::fclose(fp);
      long position = 0;
      EXPECT_EQ(IndexLookup(path, path, key.c_str(), &position), found ? line : "missing")
          << "sku " << key.substr(0, 12) << " in " << c.content.substr(0, 24);
      if (found) {
        EXPECT_EQ(position, scan_position) << key.substr(0, 12);
      }
    }
  }
  g_settle_clock_ahead = 0;
}

// An index stands for one version of one file: a changed database is indexed
// anew, another file's index is not used, and an index that cannot be written
// leaves the lookup to the scan until the process meets that version again.
TEST(ProductDb, SkuIndexFollowsItsDatabase) {
  ScopedTempDir dir;
  const std::string a = dir.Path("a.txt"), b = dir.Path("b.txt");
  g_settle_clock_ahead = 3;
  WriteFile(a, "SKU\tN\nX1\tone\nX2\ttwo\n");
  WriteFile(b, "SKU\tN\nX2\tbee\n");
  EXPECT_EQ(IndexLookup(a, a, "x2"), "X2\ttwo");
  WriteFile(a, "SKU\tN\nX2\tnew\nX1\tone\nX3\t\n");
  EXPECT_EQ(IndexLookup(a, a, "X2"), "X2\tnew");
  ForgetProductFiles();
  EXPECT_EQ(IndexLookup(a, a, "X3"), "X3\t");

  std::filesystem::copy_file(SkuIndexPath(a), SkuIndexPath(b));
  EXPECT_EQ(IndexLookup(b, b, "X2"), "X2\tbee");
  EXPECT_EQ(IndexLookup(b, b, "X1"), "missing");

  const std::string unwritable = dir.Path("no such dir/b.txt");
  EXPECT_EQ(IndexLookup(b, unwritable, "X2"), "scan");
  EXPECT_EQ(IndexLookup(b, unwritable, "X2"), "X2\tbee");

  // A file changed in the last two seconds is scanned.
  g_settle_clock_ahead = 0;
  WriteFile(b, "SKU\tN\nX2\tbee\nX4\tfour\n");
  EXPECT_EQ(IndexLookup(b, b, "X4"), "scan");
}

// A kept text is used only while the file is unchanged: an edit that keeps
// the size, of a file whose last change is long past, is seen by the next
// lookup.
TEST_F(ProductDbTest, EditOfAKeptFileIsSeen) {
  Open("SKU\tName\nA1\tShirt\n");
  g_settle_clock_ahead = 3;
  EXPECT_EQ(Lookup("A1"), (Pairs{{"SKU", "A1"}, {"Name", "Shirt"}}));
  EXPECT_EQ(Lookup("A1"), (Pairs{{"SKU", "A1"}, {"Name", "Shirt"}}));
  WriteFile(path_, "SKU\tName\nA1\tSkirt\n");
  EXPECT_EQ(Lookup("A1"), (Pairs{{"SKU", "A1"}, {"Name", "Skirt"}}));
  g_settle_clock_ahead = 0;
}

}  // namespace
}  // namespace storegen
