// Small helpers of the support library: version texts, rounding, mail
// command expansion, self-sizing byte buffers.
#ifndef STOREGEN_CGISUPPORT_MISC_UTIL_H_
#define STOREGEN_CGISUPPORT_MISC_UTIL_H_

#include <cstddef>
#include <cstdint>

namespace storegen {

// The system's version string, "4.2.0.9".
const char* GetTillboxVersion();

// Rounds |value| to |decimals| places by formatting with "%.*f" and reading
// the text back.
double roundDouble(double value, int decimals);

// Expands a mail command template into |dst| (|dst_size| bytes, always
// terminated): "<R...>" inserts |recipient|, "<S...>" |subject|, "<O...>"
// |other| only when |mode| is 'f'; any other "<x...>" inserts nothing.
void ParseMailCommand(const char* tmpl, char mode, char* dst, std::size_t dst_size,
                      const char* subject, const char* recipient, const char* other);
// Does nothing on this platform.
void MailFile();
// Always 0: there is no registry on this platform.
int LookupExtInReg();

// A heap block holding a capacity word (a multiple of 256) and the data;
// callers hold the data pointer. Bytes beyond what was written are zero.
// Ensures room for |size| bytes (creating the buffer when |buf| is null);
// returns the possibly moved data pointer, or null when memory runs out (the
// old buffer then stays valid).
void* DynaBuffer_alloc(void* buf, uint32_t size);
// Frees the whole block; null is allowed. Returns 0.
int DynaBuffer_free(void* buf);
// The capacity; 0 for null.
uint32_t DynaBuffer_size(const void* buf);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_MISC_UTIL_H_
