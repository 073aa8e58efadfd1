#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "search/collection.h"
#include "search/options.h"
#include "search/output.h"
#include "search/setup.h"
#include "search/times.h"
#include "vekfind/commands.h"

namespace commands {
namespace {

struct Words {
    std::string rows, queries;
    search::Options options;
};

template <typename T>
void search_for(const Words& words) {
    const search::Options& options = words.options;
    search::Times times(options.tell_times);
    const search::Setup setup = search::open_sources({words.rows}, options);
    search::Queries<T> queries(words.queries, options, setup.comparison);
    if (!options.int8)
        search::warn_if_far(*setup.slices.front().source);
    const auto output = search::open_output(options.output);
    const search::Collection<T> collection(setup.slices, static_cast<size_t>(options.nr_threads),
                                           setup.comparison.settings());
    times.tell("loading " + std::to_string(collection.nr_rows()) + " rows");

    const auto k = static_cast<size_t>(options.k);
    search::Result result(queries.size(), k);
    const size_t most = search::queries_at_once(k);
    for (size_t first = 0; first < queries.size(); first += most) {
        const size_t count = std::min(most, queries.size() - first);
        const search::Result found = collection.search(queries.read(first, count).data(), count, k,
                                                       options.threshold.value_or(0));
        std::copy(found.matches.begin(), found.matches.end(), result.of_query(first));
    }
    times.tell("searching with " + std::to_string(queries.size()) + " queries");
    search::warn_of_changes("vekfind", collection.nr_changed() + queries.nr_changed());
    search::write_result(output.get(), result, setup.comparison.has_scores);
}

}  // namespace

void add_search(CLI::App& app) {
    const auto words = std::make_shared<Words>();
    CLI::App* command = app.add_subcommand("search", "find the rows that are nearest to queries");
    command->add_option("ROWS", words->rows, "a group file, or a file of features")
        ->required()
        ->type_name("");
    command->add_option("QUERIES", words->queries, "a file of features")->required()->type_name("");
    search::add_options(*command, words->options);
    command->callback([words] {
        search::require_sense(words->options);
        if (words->options.int8)
            search_for<int8_t>(*words);
        else
            search_for<float>(*words);
    });
}

}  // namespace commands
