#include "kernels/check.h"

#include <atomic>

namespace kern {
namespace {

// Null while nobody observes. There is no default object: a check may fail in a destructor at exit,
// when such an object would be gone.
std::atomic<KernelErrorHandler*> current_handler{nullptr};

}  // namespace

void set_kernel_error_handler(KernelErrorHandler* handler) {
    current_handler = handler;
}

void fail(CheckSite site) {
    fail(site, std::string());
}

void fail(CheckSite, const std::string& text) {
    if (KernelErrorHandler* handler = current_handler)
        handler->on_error(text);
    __builtin_trap();
}

void fail_reshape(CheckSite) {
    if (KernelErrorHandler* handler = current_handler)
        handler->on_reshape_error(std::string());
    __builtin_trap();
}

}  // namespace kern
