// `vekfind info`: what is in a file of features or a group file.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>

#include "common/json.h"
#include "common/progress.h"
#include "common/text.h"
#include "features/constants.h"
#include "features/group_file.h"
#include "features/pieces.h"
#include "vekfind/commands.h"

namespace commands {
namespace {

using features::FeatureFile;
using tools::formatted;

struct InfoOptions {
    std::string path;
    bool json = false;
};

// Of rows that can be searched; the others are counted.
struct RowFacts {
    double least_norm = INFINITY, greatest_norm = 0;
    double distance_ratio = 0;
    uint64_t nr_not_finite = 0, first_not_finite = 0;
};

struct GroupFacts {
    uint32_t tag_size = 0;
    uint64_t least_id = 0, greatest_id = 0;
    features::Constants constants;
};

struct Facts {
    std::string path, format, type;
    uint64_t nr_rows = 0, nr_bytes = 0;
    size_t dim = 0;
    RowFacts rows;
    std::optional<GroupFacts> group;
};

double norm_of(const float* row, size_t dim) {
    double sum = 0;
    for (size_t i = 0; i < dim; ++i)
        sum += static_cast<double>(row[i]) * static_cast<double>(row[i]);
    return std::sqrt(sum);
}

RowFacts look_at_rows(FeatureFile& file) {
    RowFacts facts;
    features::Spread spread(file.dim());
    features::Preparation nothing;
    nothing.allow_not_finite = true;
    tools::Progress progress("rows", file.nr_rows());
    const size_t dim = file.dim();
    features::for_each_piece(file, nothing, [&](float* rows, size_t count, uint64_t first) {
        size_t nr_kept = 0;
        for (size_t i = 0; i < count; ++i) {
            const float* const row = rows + i * dim;
            if (!features::is_finite_row(row, dim)) {
                if (facts.nr_not_finite++ == 0)
                    facts.first_not_finite = first + i;
                continue;
            }
            const double norm = norm_of(row, dim);
            facts.least_norm = std::min(facts.least_norm, norm);
            facts.greatest_norm = std::max(facts.greatest_norm, norm);
            std::copy(row, row + dim, rows + nr_kept++ * dim);
        }
        spread.add(rows, nr_kept);
        progress.add(count);
    });
    facts.distance_ratio = spread.distance_ratio();
    return facts;
}

GroupFacts look_at_group(const std::string& path) {
    const features::GroupFile group(path);
    GroupFacts facts;
    facts.tag_size = group.tag_size();
    facts.constants = features::read_constants(path);
    const std::vector<uint64_t> ids = group.read_ids();
    if (!ids.empty()) {
        const auto [least, greatest] = std::minmax_element(ids.begin(), ids.end());
        facts.least_id = *least;
        facts.greatest_id = *greatest;
    }
    return facts;
}

Facts look_at(const std::string& path) {
    const auto file = features::open_features(path, true);
    Facts facts{path, file->format(), npy::name_of(file->type()), file->nr_rows(), 0, 0, {}, {}};
    facts.nr_bytes = tools::InputFile(path).size();
    facts.dim = file->dim();
    if (file->is_group())
        facts.group = look_at_group(path);
    facts.rows = look_at_rows(*file);
    return facts;
}

std::string optional_number(const std::optional<float>& number) {
    return number ? formatted("%.9g", static_cast<double>(*number)) : "none";
}

void print_group(const Facts& facts) {
    const GroupFacts& group = *facts.group;
    if (facts.nr_rows > 0)
        std::cout << "ids: " << group.least_id << " to " << group.greatest_id << '\n';
    std::cout << "tags: "
              << (group.tag_size == 0 ? "none" : std::to_string(group.tag_size) + " bytes")
              << "\nscale: " << optional_number(group.constants.scale)
              << "\nbias: " << optional_number(group.constants.bias)
              << "\nnormalized: " << (group.constants.normalize ? "yes" : "no") << '\n';
}

void print(const Facts& facts) {
    std::cout << tools::printable(facts.path) << ": " << facts.format << " of " << facts.nr_bytes
              << " bytes\nrows: " << facts.nr_rows << "\ndimension: " << facts.dim << ' '
              << facts.type << '\n';
    if (facts.group)
        print_group(facts);
    const RowFacts& rows = facts.rows;
    if (facts.nr_rows > rows.nr_not_finite)
        std::cout << "lengths: " << formatted("%.6g", rows.least_norm) << " to "
                  << formatted("%.6g", rows.greatest_norm)
                  << "\nmean: " << formatted("%.3g", rows.distance_ratio)
                  << " times as far from the origin as the rows are from it\n";
    if (rows.nr_not_finite > 0)
        std::cout << "rows with NaN, infinity or elements too large to square: "
                  << rows.nr_not_finite << ", the first is row " << rows.first_not_finite << '\n';
}

void write_number(tools::JsonWriter& json, const char* key, const std::optional<float>& number) {
    json.key(key);
    number ? json.value(static_cast<double>(*number)) : json.null();
}

void write_json(const Facts& facts) {
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("file").value(facts.path);
    json.key("format").value(facts.format);
    json.key("bytes").value(facts.nr_bytes);
    json.key("rows").value(facts.nr_rows);
    json.key("dim").value(uint64_t{facts.dim});
    json.key("type").value(facts.type);
    if (facts.group) {
        json.key("tag_bytes").value(uint64_t{facts.group->tag_size});
        json.key("least_id").value(facts.group->least_id);
        json.key("greatest_id").value(facts.group->greatest_id);
        write_number(json, "scale", facts.group->constants.scale);
        write_number(json, "bias", facts.group->constants.bias);
        json.key("normalize").value(facts.group->constants.normalize);
    }
    json.key("least_length").value(facts.rows.least_norm);
    json.key("greatest_length").value(facts.rows.greatest_norm);
    json.key("distance_ratio").value(facts.rows.distance_ratio);
    json.key("not_finite_rows").value(facts.rows.nr_not_finite);
    json.end_object();
    json.finish();
}

}  // namespace

void add_info(CLI::App& app) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "tell what is in a group or a feature file");
    command->add_option("FILE", options->path, "a group, .npy, .fvecs, .bvecs or .csv")
        ->required()
        ->type_name("");
    command->add_flag("--json", options->json, "one JSON object instead of text");
    command->callback([options] {
        const Facts facts = look_at(options->path);
        options->json ? write_json(facts) : print(facts);
    });
}

}  // namespace commands
