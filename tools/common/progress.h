// A bar on the standard error that tells how far a long piece of work has come: where that is a
// terminal, and only when the work takes longer than a moment.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tools {

class Progress {
public:
    Progress(std::string title, uint64_t total);
    ~Progress();  // clears the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void add(uint64_t count);

private:
    void draw() const;

    std::string m_title;
    uint64_t m_total, m_done = 0;
    bool m_is_on_terminal, m_is_drawn = false;
    std::chrono::steady_clock::time_point m_next;
};

}  // namespace tools
