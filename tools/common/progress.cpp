#include "common/progress.h"

#include <unistd.h>

#include <iostream>

namespace tools {
namespace {

constexpr std::chrono::milliseconds INTERVAL{100};
constexpr size_t WIDTH = 40;

}  // namespace

Progress::Progress(std::string title, uint64_t total)
    : m_title(std::move(title)),
      m_total(total),
      m_is_on_terminal(::isatty(STDERR_FILENO) != 0),
      m_next(std::chrono::steady_clock::now() + INTERVAL) {}

Progress::~Progress() {
    if (m_is_drawn)
        std::cerr << "\r\033[K" << std::flush;
}

void Progress::add(uint64_t count) {
    m_done += count;
    const auto now = std::chrono::steady_clock::now();
    if (!m_is_on_terminal || m_total == 0 || now < m_next)
        return;
    m_next = now + INTERVAL;
    m_is_drawn = true;
    draw();
}

void Progress::draw() const {
    const double share = static_cast<double>(m_done) / static_cast<double>(m_total);
    const auto full = static_cast<size_t>(share * WIDTH);
    std::cerr << '\r' << m_title << " [" << std::string(full, '#') << std::string(WIDTH - full, ' ')
              << "] " << static_cast<int>(share * 100) << " % of " << m_total << std::flush;
}

}  // namespace tools
