#include "kernels/check.h"

#include <atomic>

namespace kern {
namespace {

class TrappingHandler final : public KernelErrorHandler {
public:
    void on_error(const std::string&) override { __builtin_trap(); }
    void on_reshape_error(const std::string&) override { __builtin_trap(); }
};

TrappingHandler trapping_handler;
std::atomic<KernelErrorHandler*> current_handler{&trapping_handler};

}  // namespace

void set_kernel_error_handler(KernelErrorHandler* handler) {
    current_handler = handler ? handler : &trapping_handler;
}

void fail(CheckSite site) {
    fail(site, std::string());
}

void fail(CheckSite, const std::string& text) {
    current_handler.load()->on_error(text);
    __builtin_trap();
}

void fail_reshape(CheckSite) {
    current_handler.load()->on_reshape_error(std::string());
    __builtin_trap();
}

}  // namespace kern
