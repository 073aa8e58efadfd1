// Files that another encoder has made, whole, wrong and damaged.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/graph/node/workers.h"
#include "tests/serialization/file_graphs.h"

namespace orb {
namespace {

using namespace orb_test;
namespace fs = std::filesystem;

const fs::path FOLDER = fs::path(VEKFIND_TEST_DIR) / "golden" / "graph";

Bytes bytes_of(const std::string& name) {
    std::ifstream file(FOLDER / name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

// Lines of a file name and a text.
std::vector<std::pair<std::string, std::string>> lines_of(const char* list) {
    std::ifstream file(FOLDER / list);
    std::vector<std::pair<std::string, std::string>> lines;
    std::string name, text;
    while (file >> name && std::getline(file >> std::ws, text))
        lines.emplace_back(name, text);
    EXPECT_FALSE(lines.empty());
    return lines;
}

TEST(GoldenGraphs, WrongOnesAreToldByFaultAndPlace) {
    for (const auto& [name, wanted] : lines_of("faults.txt")) {
        std::string told = "nothing";
        try {
            inspected(bytes_of(name));
        } catch (const GraphFileError& error) {
            told = error.what();
        }
        // Its sizes are too large for words of 32 bits already.
        const bool is_for_wide_words = name == "bad-shape.graph" || name == "bad-value-huge.graph";
        if (sizeof(size_t) == 8 || !is_for_wide_words) {
            EXPECT_EQ(told, wanted) << name;
        }
        EXPECT_DEATH(loaded(bytes_of(name)), "") << name;
    }
}

TEST(GoldenGraphs, AreWrittenAgainAsTheyWere) {
    for (const auto& [name, written] : lines_of("redumps.txt")) {
        const Bytes bytes = bytes_of(name);
        GraphDumpConfig config;
        config.keep_priorities = inspected(bytes).header.has(graph_feature::PRIORITIES);
        EXPECT_EQ(dumped(loaded(bytes).output_vars, config), bytes_of(written)) << name;
    }
}

// Good files with one thing changed: cut, or with a bit of each byte turned, or a few.
std::vector<Bytes> damaged_files() {
    constexpr size_t STEP = SLOWER == 1 ? 3 : 8;
    std::vector<Bytes> files;
    for (const auto& [name, unused] : lines_of("redumps.txt")) {
        const Bytes whole = bytes_of(name);
        for (size_t i = 0; i < whole.size(); ++i) {
            files.emplace_back(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(i));
            for (size_t bit = i % STEP; bit < 8; bit += STEP) {
                files.push_back(whole);
                files.back()[i] ^= static_cast<uint8_t>(1u << bit);
            }
        }
    }
    return files;
}

bool is_accepted(const Bytes& bytes) {
    try {
        inspected(bytes);
        return true;
    } catch (const GraphFileError&) {
        return false;
    }
}

// In a child, which notes how far it has come. Gives the status with which it ended.
int load_from(const std::vector<Bytes>& files, size_t begin, size_t* current) {
    const pid_t child = fork();
    if (child == 0) {
        GraphLoadConfig config;
        // A child has no workers.
        config.node_mapper = [](const CompNode::Locator&) { return CompNode::default_cpu(); };
        for (*current = begin; *current < files.size(); ++*current)
            loaded(files[*current], config);
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

// What the parser refuses is refused by an error; what only operators can judge stops the process
// by a check. Neither ever touches memory that is not there, which sanitizers see best.
TEST(GoldenGraphs, DamagedOnesAreRefusedOrLoaded) {
    const Watchdog watchdog;
    std::vector<Bytes> files = damaged_files();
    const auto accepted = std::partition(files.begin(), files.end(), is_accepted);
    files.erase(accepted, files.end());
    void* shared =
        mmap(nullptr, sizeof(size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto* current = static_cast<size_t*>(shared);
    for (size_t begin = 0; begin < files.size(); begin = *current + 1) {
        const int status = load_from(files, begin, current);
        if (WIFEXITED(status)) {
            ASSERT_EQ(WEXITSTATUS(status), 0) << *current;
            break;
        }
        ASSERT_TRUE(WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP)
            << WTERMSIG(status) << " at " << *current;
    }
    munmap(shared, sizeof(size_t));
}

}  // namespace
}  // namespace orb
