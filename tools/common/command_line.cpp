#include "common/command_line.h"

#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <new>

#include "common/failure.h"
#include "common/text.h"

namespace tools {
namespace {

int fail(const char* name, const std::string& text, int status) {
    std::cout.flush();
    std::cerr << name << ": " << printable(text) << '\n';
    return status;
}

}  // namespace

int run_program(const char* name, const std::function<int()>& body) {
    ::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is then a failed write
    try {
        const int status = body();
        std::cout.flush();
        return std::cout ? status : fail(name, "the output cannot be written", 1);
    } catch (const BadUse& error) {
        return fail(name, error.what(), 2);
    } catch (const std::bad_alloc&) {
        return fail(name, "memory is lacking", 1);
    } catch (const std::exception& error) {
        return fail(name, error.what(), 1);
    }
}

std::optional<int> parse(CLI::App& app, int nr_words, char** words) {
    try {
        app.parse(nr_words, words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        throw BadUse(error.what());
    }
    return std::nullopt;
}

}  // namespace tools
