// Part of the test programs that run in the emulator of 32-bit Arm with the address sanitizer. The
// emulator hands out addresses without reusing them, and in the end those at the top of the four
// gigabytes, of which the sanitizer covers the lower three. It also trips over memory that ends
// where a part that it covers ends. Such addresses are taken before any test begins.
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

void take(uintptr_t begin, uintptr_t end) {
    void* place = reinterpret_cast<void*>(begin);
    if (mmap(place, end - begin, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) !=
        place) {
        std::perror("addresses that the sanitizer does not cover");
        std::abort();
    }
}

[[gnu::constructor]] void take_what_is_not_covered() {
    take(0x1ff00000, 0x20000000);
    take(0xbff00000, 0xffff0000);  // a page of the system's follows
}

}  // namespace
