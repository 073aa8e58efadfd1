# Flags that every target of this project is built with.

# A score's bits are defined by separately rounded products and sums; a contracted multiply-add
# would change the last bit on targets that have one.
add_compile_options(-ffp-contract=off)

add_compile_options(
    -Wall -Wextra -Wconversion -Wshadow -Wcast-align=strict
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    add_compile_options(-Wno-unknown-warning-option)
endif()
if(VEKFIND_WERROR)
    add_compile_options(-Werror)
endif()

# Assertion sites and debug information name files relative to the source tree.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(VEKFIND_SANITIZE)
    add_compile_options(-fsanitize=${VEKFIND_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${VEKFIND_SANITIZE})
    # Instrumented code makes GCC 12 see uninitialised reads in the standard library's own.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        add_compile_options(-Wno-maybe-uninitialized)
    endif()
    # A Thumb function's address is odd, which the undefined sanitizer takes for misaligned. And on Arm
    # GCC 12 leaves the stack of scopes that an exception has ended marked as unusable.
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        add_compile_options(-marm -fno-sanitize-address-use-after-scope)
    endif()
endif()

# Everything reports its branches, but only a fuzzer itself links the runtime's main.
if(VEKFIND_BUILD_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()

# Without the flag for it a 32-bit Arm compiler emits no NEON at all, and says nothing.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    # An ABI note of long ago that every std::vector<uint64_t> would print.
    add_compile_options(-Wno-psabi)
    include(CheckCXXSourceCompiles)
    check_cxx_source_compiles("
#ifndef __ARM_NEON
#error no NEON
#endif
int main() { return 0; }" VEKFIND_HAS_NEON)
    if(NOT VEKFIND_HAS_NEON)
        message(FATAL_ERROR "32-bit Arm needs NEON: build with -march=armv7-a -mfpu=neon")
    endif()
endif()
