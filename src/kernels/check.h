// Checks of the layers below the stores. A failed check is a programming error of the layers above:
// it never returns, throws nothing, prints nothing, and a debugger shows its place as the argument
// of `fail`. Whatever a caller or a file can cause must be refused above these layers.
#pragma once

#include <string>

namespace kern {

// Observes failures before the process stops. Replaceable so that a host can record the failure;
// a handler that returns changes nothing.
class KernelErrorHandler {
public:
    virtual ~KernelErrorHandler() = default;
    // A failed check. `text` is empty except where names of dtypes are reported.
    virtual void on_error(const std::string& text) = 0;
    // A shape that cannot be viewed as asked (broadcast, reshape).
    virtual void on_reshape_error(const std::string& text) = 0;
};

// The handler in force from now on; null, as at the start, for none: the process just stops. The
// handler must live until it is replaced.
void set_kernel_error_handler(KernelErrorHandler* handler);

struct CheckSite {
    const char* file;
    int line;
};

[[noreturn]] void fail(CheckSite site);
[[noreturn]] void fail(CheckSite site, const std::string& text);
[[noreturn]] void fail_reshape(CheckSite site);

}  // namespace kern

#define KERN_SITE          \
    ::kern::CheckSite {    \
        __FILE__, __LINE__ \
    }
#define KERN_FAIL() ::kern::fail(KERN_SITE)
#define KERN_FAIL_TEXT(text) ::kern::fail(KERN_SITE, text)
#define KERN_CHECK(condition) (__builtin_expect(!!(condition), 1) ? void(0) : KERN_FAIL())
#define KERN_CHECK_TEXT(condition, text) \
    (__builtin_expect(!!(condition), 1) ? void(0) : KERN_FAIL_TEXT(text))
#define KERN_CHECK_RESHAPE(condition) \
    (__builtin_expect(!!(condition), 1) ? void(0) : ::kern::fail_reshape(KERN_SITE))
