#include "cgisupport/misc_util.h"

#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cgisupport/copy_truncated.h"

namespace storegen {
namespace {

// A dynamic buffer's block: a header of max_align_t size, whose last four
// bytes hold the capacity (so the word sits right before the data), then the
// data, which is aligned for any type.
constexpr std::size_t kDynaHeader = alignof(std::max_align_t) > sizeof(uint32_t)
                                        ? alignof(std::max_align_t)
                                        : sizeof(uint32_t);
constexpr uint32_t kDynaStep = 256;

char* BlockOf(void* data) {
  return static_cast<char*>(data) - kDynaHeader;
}

uint32_t& CapacityWord(void* data) {
  return *reinterpret_cast<uint32_t*>(static_cast<char*>(data) - sizeof(uint32_t));
}

}  // namespace

const char* GetTillboxVersion() {
  return "4.2.0.9";
}

double roundDouble(double value, int decimals) {
  int n = std::snprintf(nullptr, 0, "%.*f", decimals, value);
  if (n < 0) return value;
  std::string text(static_cast<std::size_t>(n) + 1, '\0');
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return std::strtod(text.c_str(), nullptr);
}

void ParseMailCommand(const char* tmpl, char mode, char* dst, std::size_t dst_size,
                      const char* subject, const char* recipient, const char* other) {
  std::string out;
  for (const char* p = tmpl; p != nullptr && *p != '\0'; ++p) {
    // Only '<' followed by a letter opens a field; "< file" stays as written
    // so that templates can redirect the mailer's input.
    if (*p != '<' || !std::isalpha(static_cast<unsigned char>(p[1]))) {
      out.push_back(*p);
      continue;
    }
    const char* value = nullptr;
    switch (std::toupper(static_cast<unsigned char>(p[1]))) {
      case 'R':
        value = recipient;
        break;
      case 'S':
        value = subject;
        break;
      case 'O':
        if (mode == 'f') value = other;
        break;
      default:
        break;
    }
    if (value != nullptr) out += value;
    const char* close = std::strchr(p + 1, '>');
    if (close == nullptr) break;
    p = close;
  }
  CopyTruncated(dst, dst_size, out);
}

void MailFile() {}

int LookupExtInReg() {
  return 0;
}

void* DynaBuffer_alloc(void* buf, uint32_t size) {
  uint32_t old_capacity = buf == nullptr ? 0 : CapacityWord(buf);
  if (buf != nullptr && old_capacity >= size) return buf;
  uint64_t capacity = (static_cast<uint64_t>(size) / kDynaStep + 1) * kDynaStep;
  if (capacity > UINT32_MAX) return nullptr;
  void* block = buf == nullptr ? nullptr : BlockOf(buf);
  char* grown = static_cast<char*>(std::realloc(block, kDynaHeader + capacity));
  if (grown == nullptr) return nullptr;
  char* data = grown + kDynaHeader;
  std::memset(data + old_capacity, 0, capacity - old_capacity);
  CapacityWord(data) = static_cast<uint32_t>(capacity);
  return data;
}

int DynaBuffer_free(void* buf) {
  if (buf != nullptr) std::free(BlockOf(buf));
  return 0;
}

uint32_t DynaBuffer_size(const void* buf) {
  if (buf == nullptr) return 0;
  return *reinterpret_cast<const uint32_t*>(static_cast<const char*>(buf) - sizeof(uint32_t));
}

}  // namespace storegen
