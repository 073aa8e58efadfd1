// Part of the test programs that run in the emulator of 32-bit Arm with the address sanitizer. The
// emulator hands out addresses without reusing them, and in the end those at the top of the four
// gigabytes, of which the sanitizer covers the lower three. It also trips over memory that ends
// just there. Such addresses are taken before any test begins.
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

[[gnu::constructor]] void take_what_is_not_covered() {
    constexpr uintptr_t BEGIN = 0xbff00000, END = 0xffff0000;  // a page of the system's follows
    void* place = reinterpret_cast<void*>(BEGIN);
    if (mmap(place, END - BEGIN, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) !=
        place) {
        std::fputs("addresses that the sanitizer does not cover are in use\n", stderr);
        std::abort();
    }
}

}  // namespace
