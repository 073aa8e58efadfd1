// `vekfind bench`: how long searches of a group take, as shares of what the machine can do.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <random>

#include "common/failure.h"
#include "common/json.h"
#include "common/machine_limits.h"
#include "common/text.h"
#include "features/constants.h"
#include "features/group_file.h"
#include "vekfind/commands.h"
#include "vekfind/vekfind.hpp"

namespace commands {
namespace {

using tools::formatted;

constexpr size_t BATCHES[] = {1, 4, 16, 64, 256, 1024};

struct Options {
    std::string group;
    uint32_t rows = 0, dim = 0;
    size_t k = 10;
    double seconds = 1;
    bool int8 = false, json = false;
};

struct Line {
    size_t batch;
    double seconds, reading, computing;

    double bound() const { return std::max(reading, computing); }
    double share() const { return bound() / seconds; }
};

struct Report {
    double bandwidth = 0, peak = 0;  // bytes and operations a second; no peak where it is unknown
    std::vector<Line> lines;
};

// A group and the queries for it, of one element type.
template <typename T>
struct Subject {
    vekfind::Group group;
    std::vector<T> queries;  // as many as the largest batch
};

template <typename T>
std::vector<T> random_rows(size_t count, std::mt19937_64& random) {
    std::vector<T> values(count);
    for (T& value : values) {
        const auto bits = static_cast<int32_t>(random() >> 32);  // both signs
        if constexpr (std::is_same_v<T, float>)
            value = static_cast<float>(bits) * 0x1p-31f;
        else
            value = static_cast<T>(bits / (INT32_MAX / 127));
    }
    return values;
}

template <typename T>
Subject<T> made_up(const Options& options) {
    constexpr bool IS_INT8 = std::is_same_v<T, int8_t>;
    const size_t dim = options.dim;
    vekfind::Settings settings;
    settings.dim = options.dim;
    settings.scale = (IS_INT8 ? 1 / (127.0f * 127.0f) : 1.0f) / static_cast<float>(dim);
    settings.is_int8 = IS_INT8;
    Subject<T> subject{vekfind::Group(settings), {}};
    std::mt19937_64 random(1);
    constexpr uint32_t PIECE = 8192;
    subject.group.reserve(options.rows);
    for (uint32_t first = 0; first < options.rows;) {
        std::vector<uint64_t> ids(std::min(PIECE, options.rows - first));
        for (uint64_t& id : ids)
            id = first++;
        subject.group.insert(ids, random_rows<T>(ids.size() * dim, random));
    }
    subject.queries = random_rows<T>(BATCHES[std::size(BATCHES) - 1] * dim, random);
    return subject;
}

// Its own rows, evenly spread, are the queries.
Subject<float> loaded(const Options& options) {
    const features::GroupFile file(options.group);
    if (file.nr_rows() == 0)
        throw tools::BadFile(options.group + ": there are no rows to search");
    const features::Constants constants = features::read_constants(options.group);
    vekfind::Settings settings;
    settings.dim = static_cast<uint32_t>(file.dim());
    settings.tag_size = file.tag_size();
    settings.scale = constants.scale.value_or(1 / static_cast<float>(file.dim()));
    settings.bias = constants.bias.value_or(0.0f);
    Subject<float> subject{vekfind::Group(options.group, settings), {}};
    const size_t nr_queries = BATCHES[std::size(BATCHES) - 1];
    subject.queries.resize(nr_queries * file.dim());
    for (size_t query = 0; query < nr_queries; ++query)
        file.read_features(query * file.nr_rows() / nr_queries, 1,
                           subject.queries.data() + query * file.dim());
    return subject;
}

template <typename T>
double best_seconds(const Subject<T>& subject, size_t batch, const Options& options) {
    const vekfind::Features queries(subject.queries.data(), batch * subject.group.settings().dim);
    std::vector<uint64_t> ids(batch * options.k);
    std::vector<float> scores(batch * options.k);
    const auto call = [&] {
        const double start = machine_limits::seconds_now();
        subject.group.search_into(queries, options.k, ids, scores);
        return machine_limits::seconds_now() - start;
    };
    call();  // buffers grow to what the batch needs
    double best = call();
    for (const double end = machine_limits::seconds_now() + options.seconds;
         machine_limits::seconds_now() < end;)
        best = std::min(best, call());
    return best;
}

// The limits are measured around each line, since other work on the machine comes and goes: the
// best ones count.
template <typename T>
Report measure(const Subject<T>& subject, const Options& options) {
    constexpr size_t MOST_BYTES = size_t{1} << 30;  // beyond, reading is as fast
    const double elements =
        static_cast<double>(subject.group.size()) * subject.group.settings().dim;
    const double bytes = elements * sizeof(T);
    const auto sample = static_cast<size_t>(std::min(bytes, static_cast<double>(MOST_BYTES)));
    Report report;
    const auto measure_limits = [&] {
        report.bandwidth = std::max(report.bandwidth, machine_limits::read_bandwidth(sample));
        report.peak = std::max(report.peak, sizeof(T) == 1 ? machine_limits::int8_peak()
                                                           : machine_limits::float_peak());
    };
    measure_limits();
    for (size_t batch : BATCHES) {
        report.lines.push_back({batch, best_seconds(subject, batch, options), 0, 0});
        measure_limits();
    }
    for (Line& line : report.lines) {
        line.reading = bytes / report.bandwidth;
        if (report.peak > 0)
            line.computing = 2 * elements * static_cast<double>(line.batch) / report.peak;
    }
    return report;
}

void print(const vekfind::Group& group, const Options& options, const Report& report) {
    const vekfind::Settings& settings = group.settings();
    std::cout << group.size() << " rows of " << settings.dim
              << (settings.is_int8 ? " 8-bit integers, " : " floats, ") << options.k
              << " nearest, one thread\nThis machine at most: reading "
              << formatted("%.3g", report.bandwidth * 1e-9) << " GB/s, ";
    if (report.peak > 0)
        std::cout << formatted("%.3g", report.peak * 1e-9) << " Gop/s\n\n";
    else
        std::cout << "multiply-adds unknown, so the bound is reading alone\n\n";
    tools::Table table("rrrrrl", {"queries", "ms", "ms a query", "bound", "share", "bound by"});
    for (const Line& line : report.lines)
        table.add({std::to_string(line.batch), formatted("%.4g", line.seconds * 1e3),
                   formatted("%.3g", line.seconds * 1e3 / static_cast<double>(line.batch)),
                   formatted("%.4g", line.bound() * 1e3), formatted("%.2f", line.share()),
                   line.reading > line.computing ? "reading" : "multiply-adds"});
    table.print(std::cout);
}

void print_json(const vekfind::Group& group, const Options& options, const Report& report) {
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("rows").value(uint64_t{group.size()});
    json.key("dim").value(uint64_t{group.settings().dim});
    json.key("type").value(group.settings().is_int8 ? "int8" : "float32");
    json.key("k").value(uint64_t{options.k});
    json.key("bytes_per_second").value(report.bandwidth);
    json.key("operations_per_second").value(report.peak);
    json.key("batches").begin_array();
    for (const Line& line : report.lines) {
        json.begin_object();
        json.key("queries").value(uint64_t{line.batch});
        json.key("seconds").value(line.seconds);
        json.key("bound_seconds").value(line.bound());
        json.key("share").value(line.share());
        json.end_object();
    }
    json.end_array();
    json.end_object();
    json.finish();
}

template <typename T>
void run_with(const Subject<T>& subject, const Options& options) {
    const Report report = measure(subject, options);
    (options.json ? print_json : print)(subject.group, options, report);
}

void run(const Options& options) {
    if (options.group.empty() == (options.rows == 0 || options.dim == 0))
        throw tools::BadUse("bench takes a group file, or --rows and --dim");
    if (!options.group.empty() && (options.int8 || options.rows > 0 || options.dim > 0))
        throw tools::BadUse("a group file says what --rows, --dim and --int8 would");
    if (!options.group.empty())
        run_with(loaded(options), options);
    else if (options.int8)
        run_with(made_up<int8_t>(options), options);
    else
        run_with(made_up<float>(options), options);
}

}  // namespace

void add_bench(CLI::App& app) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("bench", "measure searches, as shares of what this machine can do");
    command->add_option("GROUP", options->group, "a group file")->type_name("");
    command->add_option("--rows", options->rows, "made-up rows instead of a file")->type_name("N");
    command->add_option("--dim", options->dim, "their elements")->type_name("D");
    command->add_flag("--int8", options->int8, "8-bit integers instead of floats");
    command->add_option("-k", options->k, "nearest rows for each query")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str();
    command->add_option("--seconds", options->seconds, "at least, for each number of queries")
        ->capture_default_str();
    command->add_flag("--json", options->json, "one JSON object instead of text");
    command->callback([options] { run(*options); });
}

}  // namespace commands
