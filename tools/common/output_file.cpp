#include "common/output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

#include "common/failure.h"

namespace tools {
namespace {

// Names to be removed when a signal ends the program; null where a slot is free.
std::atomic<const char*> doomed_names[16];
static_assert(std::atomic<const char*>::is_always_lock_free, "a signal handler reads them");

extern "C" void remove_and_end(int signal) {
    for (auto& name : doomed_names) {
        if (const char* const doomed = name.load())
            ::unlink(doomed);
    }
    // The handler is gone by now, so this ends the program the way the signal would have.
    ::raise(signal);
}

void handle_signals_once() {
    [[maybe_unused]] static const bool is_done = [] {
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
            struct sigaction action;
            if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
                continue;  // whoever started this program wants it ignored
            action = {};
            action.sa_handler = remove_and_end;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            ::sigaction(signal, &action, nullptr);
        }
        return true;
    }();
}

size_t doom(const char* name) {
    for (size_t slot = 0; slot < std::size(doomed_names); ++slot) {
        const char* expected = nullptr;
        if (doomed_names[slot].compare_exchange_strong(expected, name))
            return slot;
    }
    throw std::length_error("too many output files");
}

std::string random_letters() {
    std::random_device device;
    char text[16];
    std::snprintf(text, sizeof(text), "%08x", static_cast<unsigned>(device()));
    return text;
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : m_path(path), m_target(std::filesystem::weakly_canonical(path).string()) {
    struct stat status;
    m_was_there = ::stat(m_target.c_str(), &status) == 0;
    if (m_was_there && !S_ISREG(status.st_mode))
        throw BadFile(path + ": it is not a regular file, so it is not replaced");
    if (m_was_there)
        m_mode = status.st_mode & 07777U;
    m_name = m_target + "." + random_letters() + ".tmp";
    m_part = m_name + ".part";
    handle_signals_once();
    m_slots[0] = doom(m_name.c_str());
    m_slots[1] = doom(m_part.c_str());
    m_file = ::open(m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (m_file < 0) {
        for (size_t slot : m_slots)
            doomed_names[slot] = nullptr;
        fail("cannot be written");
    }
}

OutputFile::~OutputFile() {
    if (m_file >= 0) {
        ::close(m_file);
        ::unlink(m_name.c_str());
    }
    ::unlink(m_part.c_str());
    for (size_t slot : m_slots)
        doomed_names[slot] = nullptr;
}

void OutputFile::write(const void* bytes, size_t count) {
    const auto* from = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t nr_written = ::write(m_file, from, count);
        if (nr_written < 0 && errno == EINTR)
            continue;
        if (nr_written <= 0)
            fail("cannot be written");
        from += nr_written;
        count -= static_cast<size_t>(nr_written);
        m_nr_written += static_cast<uint64_t>(nr_written);
    }
}

void OutputFile::write_by_name(const std::function<void(const std::string&)>& write) {
    write(m_name);
    // It may be another file now, renamed to this name.
    const int file = ::open(m_name.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0)
        fail("cannot be written");
    ::close(m_file);
    m_file = file;
}

void OutputFile::flush(uint64_t expected_bytes) {
    struct stat status;
    if (::fstat(m_file, &status) != 0 || ::fsync(m_file) != 0)
        fail("cannot be written");
    const auto length = static_cast<uint64_t>(status.st_size);
    if (length != expected_bytes)
        throw BadFile(m_path + ": " + std::to_string(length) + " of " +
                      std::to_string(expected_bytes) + " bytes were written; is the disk full?");
}

void OutputFile::commit(uint64_t expected_bytes) {
    flush(expected_bytes);
    if (m_was_there && ::fchmod(m_file, m_mode) != 0)
        fail("cannot be given the old file's mode");
    if (::rename(m_name.c_str(), m_target.c_str()) != 0)
        fail("cannot be replaced");
    ::close(m_file);
    m_file = -1;
    flush_folder();
}

// The new name, too, is to be there after a crash.
void OutputFile::flush_folder() const {
    const std::string folder = std::filesystem::path(m_target).parent_path().string();
    const int file = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    ::fsync(file);
    ::close(file);
}

void OutputFile::fail(const char* what) const {
    throw BadFile(m_path + ": " + what + ": " + std::strerror(errno));
}

}  // namespace tools
