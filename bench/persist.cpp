// How fast a group goes to a file and comes back, beside a plain copy of the same file. The file
// lies in the folder that TMPDIR names, /tmp by default; GB/s count the file's bytes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/bench_util.h"

namespace {

using namespace vek_bench;
namespace fs = std::filesystem;

constexpr size_t ROWS = 1000000;
constexpr size_t DIM = 128;

// The file that all benchmarks share; removed at the end.
class GroupFile {
public:
    GroupFile()
        : m_path(fs::temp_directory_path() / ("vekfind-bench-" + std::to_string(getpid()))) {
        dump(make_filled_group<float>(ROWS, DIM));
    }
    ~GroupFile() { fs::remove(m_path); }

    void dump(const Group& group) const {
        check(VEK_dump_feature_group_to_file(group.get(), m_path.c_str()));
    }
    Group load() const {
        const VEKFeatureGroupSettings settings = settings_for<float>(DIM);
        VEKContext context = nullptr;
        check(VEK_make_feature_group_context_from_file(m_path.c_str(), &settings, &context));
        return Group(context);
    }
    const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
};

const GroupFile& group_file() {
    static const GroupFile file;
    return file;
}

void count_bytes(benchmark::State& state) {
    const auto bytes = static_cast<double>(fs::file_size(group_file().path()));
    state.counters["GB/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * bytes * 1e-9, benchmark::Counter::kIsRate);
}

void dump(benchmark::State& state) {
    const Group group = group_file().load();
    for (auto _ : state)
        group_file().dump(group);
    count_bytes(state);
}
BENCHMARK(dump)->Unit(benchmark::kMillisecond)->UseRealTime();

void load(benchmark::State& state) {
    group_file();
    for (auto _ : state) {
        Group group = group_file().load();
        state.PauseTiming();
        group.reset();
        state.ResumeTiming();
    }
    count_bytes(state);
}
BENCHMARK(load)->Unit(benchmark::kMillisecond)->UseRealTime();

// By stdio and a buffer of 1 MB, into a file that is truncated first, as a dump does.
void copy_file(benchmark::State& state) {
    const std::string source = group_file().path();
    const std::string target = source + "-copy";
    std::vector<char> buffer(size_t{1} << 20);
    for (auto _ : state) {
        std::FILE* in = std::fopen(source.c_str(), "rb");
        std::FILE* out = std::fopen(target.c_str(), "wb");
        if (!in || !out)
            std::abort();
        size_t count = 0;
        while ((count = std::fread(buffer.data(), 1, buffer.size(), in)) > 0) {
            if (std::fwrite(buffer.data(), 1, count, out) != count)
                std::abort();
        }
        std::fclose(in);
        std::fclose(out);
    }
    count_bytes(state);
    fs::remove(target);
}
BENCHMARK(copy_file)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
