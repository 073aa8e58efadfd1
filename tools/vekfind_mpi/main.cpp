// vekfind-mpi: searches rows that are spread over processes, on one machine or on several. Each
// rank holds a shard, is sent the queries, and searches; results are merged on the way to rank 0,
// which writes them. Exit status: 0, 1 for a bad file, 2 for bad use.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "common/failure.h"
#include "common/text.h"
#include "search/collection.h"
#include "search/options.h"
#include "search/output.h"
#include "search/setup.h"
#include "search/times.h"
#include "vekfind_mpi/distinct.h"
#include "vekfind_mpi/ranks.h"

namespace {

constexpr const char* NAME = "vekfind-mpi";

struct Words {
    std::vector<std::string> rows;
    std::string queries;
    search::Options options;
};

// False where help was asked for, which rank 0 has printed.
bool parse(const mpi::Ranks& ranks, int nr_words, char** words, Words& parsed) {
    CLI::App app("Searches rows that are spread over the ranks of an MPI run.", NAME);
    app.add_option("ROWS", parsed.rows,
                   "one file, of which each rank takes its part of the rows; or several group "
                   "files, which the ranks take in turn: of 2 ranks the second takes the second, "
                   "the fourth and so on")
        ->required()
        ->type_name("");
    app.add_option("--queries", parsed.queries, "a file of features, read by rank 0")
        ->required()
        ->type_name("FILE");
    search::add_options(app, parsed.options);
    app.set_version_flag("--version", VEKFIND_VERSION);
    try {
        app.parse(nr_words, words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0)
            throw tools::BadUse(error.what());
        if (ranks.is_first())
            app.exit(error);
        return false;
    }
    search::require_sense(parsed.options);
    return true;
}

// What this rank holds: its part of a single file, or its share of several.
search::Setup open_own_rows(const mpi::Ranks& ranks, const Words& words) {
    const auto rank = static_cast<size_t>(ranks.rank()), size = static_cast<size_t>(ranks.size());
    std::vector<std::string> paths;
    for (size_t i = words.rows.size() == 1 ? 0 : rank; i < words.rows.size();
         i += words.rows.size() == 1 ? 1 : size)
        paths.push_back(words.rows[i]);
    search::Setup setup = search::open_sources(paths, words.options);
    // Before the split: of fewer rows than ranks rank 0 may have none.
    if (ranks.is_first() && !words.options.int8)
        search::warn_if_far(*setup.slices.front().source);
    if (words.rows.size() == 1)
        setup.slices = search::split(setup.slices, size)[rank];
    return setup;
}

// All ranks compare as rank 0 does. A rank without a file takes over what the others have.
void agree_on_comparison(const mpi::Ranks& ranks, search::Setup& setup) {
    search::Comparison first = setup.comparison;
    ranks.broadcast(&first, sizeof(first));
    ranks.together([&] {
        if (setup.slices.empty())
            setup.comparison = first;
        const std::string text = search::difference(first, setup.comparison);
        if (!text.empty())
            throw tools::BadFile(setup.slices.front().source->path() + ": it has " + text +
                                 ", unlike the shard of rank 0");
    });
}

std::vector<uint64_t> ids_of(const search::Setup& setup) {
    std::vector<uint64_t> ids;
    for (const search::Slice& slice : setup.slices)
        for (uint64_t row = slice.first; row < slice.end; ++row)
            ids.push_back(slice.source->id_of(row));
    return ids;
}

// Searches with all queries, piece by piece. Rank 0 has `queries`, and gets the result.
template <typename T>
search::Result search_for(const mpi::Ranks& ranks, const search::Options& options,
                          const search::Collection<T>& collection, size_t dim, size_t nr_query,
                          search::Queries<T>* queries) {
    const auto k = static_cast<size_t>(options.k);
    search::Result result(ranks.is_first() ? nr_query : 0, k);
    const size_t most = search::queries_at_once(k);
    for (size_t first = 0; first < nr_query; first += most) {
        const size_t count = std::min(most, nr_query - first);
        std::vector<T> piece(count * dim);
        ranks.together([&] {
            if (queries)
                piece = queries->read(first, count);
        });
        ranks.broadcast(piece);
        search::Result found(0, k);
        ranks.together([&] {
            found = collection.search(piece.data(), count, k, options.threshold.value_or(0));
        });
        ranks.merge(found);
        if (ranks.is_first())
            std::copy(found.matches.begin(), found.matches.end(), result.of_query(first));
    }
    return result;
}

template <typename T>
void run(const mpi::Ranks& ranks, const Words& words) {
    const search::Options& options = words.options;
    search::Times times(options.tell_times && ranks.is_first());
    search::Setup setup;
    ranks.together([&] { setup = open_own_rows(ranks, words); });
    agree_on_comparison(ranks, setup);
    if (words.rows.size() > 1)
        mpi::require_distinct(ranks, ids_of(setup));

    std::unique_ptr<search::Queries<T>> queries;
    std::unique_ptr<search::Collection<T>> collection;
    std::unique_ptr<tools::OutputFile> output;
    ranks.together([&] {
        if (ranks.is_first()) {
            output = search::open_output(options.output);
            queries =
                std::make_unique<search::Queries<T>>(words.queries, options, setup.comparison);
        }
        collection = std::make_unique<search::Collection<T>>(
            setup.slices, static_cast<size_t>(options.nr_threads), setup.comparison.settings());
    });
    search::warn_of_changes(NAME, collection->nr_changed());
    times.tell("loading " + std::to_string(collection->nr_rows()) + " rows on rank 0");

    uint64_t nr_query = queries ? queries->size() : 0;
    ranks.broadcast(&nr_query, sizeof(nr_query));
    const search::Result result =
        search_for(ranks, options, *collection, static_cast<size_t>(setup.comparison.dim),
                   static_cast<size_t>(nr_query), queries.get());
    times.tell("searching with " + std::to_string(nr_query) + " queries");
    ranks.together([&] {
        if (!ranks.is_first())
            return;
        search::warn_of_changes(NAME, queries->nr_changed());
        search::write_result(output.get(), result, setup.comparison.has_scores);
    });
}

int fail(const std::string& text, int status) {
    std::cerr << NAME << ": " << tools::printable(text) << '\n';
    return status;
}

int run_ranks(const mpi::Ranks& ranks, int nr_words, char** words) {
    try {
        Words parsed;
        bool has_work = false;
        ranks.together([&] { has_work = parse(ranks, nr_words, words, parsed); });
        if (!has_work)
            return 0;
        if (parsed.options.int8)
            run<int8_t>(ranks, parsed);
        else
            run<float>(ranks, parsed);
        return 0;
    } catch (const mpi::AgreedFailure& failure) {
        return ranks.is_first() ? fail(failure.what(), failure.exit_status) : failure.exit_status;
    } catch (const std::exception& error) {
        // Between steps that fail together: the others wait for this rank, and would for ever.
        mpi::abort_all(fail("rank " + std::to_string(ranks.rank()) + ": " + error.what(), 1));
    }
}

}  // namespace

int main(int nr_words, char** words) {
    const mpi::Ranks ranks(nr_words, words);
    return run_ranks(ranks, nr_words, words);
}
