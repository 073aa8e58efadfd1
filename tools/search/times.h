// Tells on the standard error how long the parts of a program took, where that was asked for.
#pragma once

#include <chrono>
#include <iostream>
#include <string>

#include "common/text.h"

namespace search {

class Times {
public:
    explicit Times(bool tell) : m_tell(tell) {}

    // Since the last call, or since the start.
    void tell(const std::string& part) {
        const Clock::time_point now = Clock::now();
        if (m_tell)
            std::cerr << part << ": "
                      << tools::seconds_text(std::chrono::duration<double>(now - m_last).count())
                      << '\n';
        m_last = now;
    }

private:
    using Clock = std::chrono::steady_clock;

    bool m_tell;
    Clock::time_point m_last = Clock::now();
};

}  // namespace search
