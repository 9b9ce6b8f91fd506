// The built-in message catalogue: a Russian and an English image in the
// 16-bit string-table resource format, and the lookups over them.
#ifndef FORMFILL_DRIVER_CATALOGUE_H_
#define FORMFILL_DRIVER_CATALOGUE_H_

#include <cstddef>
#include <cstdint>

#include "textio/helpers.h"

// True selects the English texts. Nothing in the program sets it.
extern bool g_StringENU;

// First string number of the messages (message n is kFirstMessageString + n).
constexpr uint16_t kFirstMessageString = 11104;

// The resource images, begin and end.
extern const unsigned char* const kRusImageBegin;
extern const unsigned char* const kRusImageEnd;
extern const unsigned char* const kEnuImageBegin;
extern const unsigned char* const kEnuImageEnd;

// Copies string id of the image [begin, end) into buf (at most size bytes,
// no terminator). Returns the number of bytes copied, 0 when the string is
// absent or the image cannot be read up to it.
uint64_t LoadString(unsigned char* buf, uint64_t size,
                    const unsigned char* begin, const unsigned char* end,
                    uint16_t id);

// String id in the language g_StringENU selects; "RUS<id>" / "ENU<id>"
// when it is absent.
DBString _S_(uint16_t id);
DBString LoadStringFromResource(uint16_t id);     // always Russian
DBString LoadStringFromResourceENU(uint16_t id);  // always English

#endif  // FORMFILL_DRIVER_CATALOGUE_H_
