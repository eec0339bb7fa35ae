// Fuzzes the reservation record reader. Whatever it accepts must write back
// to a record that reads into an entry writing the very same text again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_services.h"

namespace {

void destroy(RsvEnt *ent)
{
    if (ent) {
        RsvEnt_destroy(ent);
        std::free(ent);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    rsvfuzz::setUp();
    const std::string text(reinterpret_cast<const char *>(data), size);
    RsvEnt *ent = RsvEnt_newByString(text.c_str());
    if (!ent)
        return 0;
    char *first = RsvEnt_ToString(ent);
    destroy(ent);
    if (!first)
        return 0;
    RsvEnt *again = RsvEnt_newByString(first);
    if (!again) {
        std::fprintf(stderr, "written record not readable: <%s>\n", first);
        std::abort();
    }
    char *second = RsvEnt_ToString(again);
    destroy(again);
    if (!second || std::strcmp(first, second) != 0) {
        std::fprintf(stderr, "round trip differs:\n<%s>\n<%s>\n", first, second ? second : "(null)");
        std::abort();
    }
    std::free(first);
    std::free(second);
    return 0;
}
