// `vekfind build`: a group file from features, or 8-bit features as the library takes them.
#include <CLI/CLI.hpp>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>

#include "common/failure.h"
#include "common/progress.h"
#include "common/text.h"
#include "features/constants.h"
#include "features/group.h"
#include "features/group_file.h"
#include "vekfind/commands.h"
#include "vekfind/int8.h"
#include "vekfind/options.h"

namespace commands {
namespace {

using features::FeatureFile;

struct BuildOptions {
    std::string features, output, ids, tags;
    RowOptions rows;
    std::optional<float> scale, bias;
};

void check(const BuildOptions& options, bool is_int8) {
    if (options.scale && !(*options.scale > 0 && *options.scale <= FLT_MAX))
        throw tools::BadUse("--scale: it is to be above 0, and a number that a float holds");
    if (options.bias && !std::isfinite(*options.bias))
        throw tools::BadUse("--bias: it is to be a number that a float holds");
    if (is_int8 && (options.rows.is_any() || !options.ids.empty() || !options.tags.empty()))
        throw tools::BadUse(options.output +
                            ": 8-bit features are kept as they are, and ids and tags in files "
                            "of their own: `vekfind search` has --ids and --tags");
}

struct IdsAndTags {
    std::vector<uint64_t> ids;
    features::Tags tags;
};

// Those of a group go with its rows, unless others are given.
IdsAndTags read_ids_and_tags(const BuildOptions& options, const FeatureFile& file) {
    IdsAndTags result;
    if (file.is_group()) {
        const features::GroupFile group(file.path());
        result = {group.read_ids(), group.read_all_tags()};
    }
    if (!options.ids.empty())
        result.ids = features::read_ids(options.ids, file.nr_rows());
    if (!options.tags.empty())
        result.tags = features::read_tags(options.tags, file.nr_rows());
    return result;
}

// Likewise.
features::Constants constants_of(const BuildOptions& options, const FeatureFile& file) {
    features::Constants constants;
    if (file.is_group())
        constants = features::read_constants(file.path());
    if (options.scale) {
        constants.scale = options.scale;
        constants.bias = options.bias;
    }
    constants.normalize |= options.rows.normalize;
    return constants;
}

vekfind::Group make_group(const BuildOptions& options, const FeatureFile& file, uint32_t tag_size) {
    vekfind::Settings settings;
    settings.dim = static_cast<uint32_t>(std::min<size_t>(file.dim(), UINT32_MAX));
    settings.scale = options.scale.value_or(1);
    settings.bias = options.bias.value_or(0);
    settings.tag_size = tag_size;
    settings.allow_non_finite = true;  // rows are checked when they are read, with their numbers
    vekfind::Group group(settings);
    try {
        // At once: a group that grew would hold its rows twice at times.
        group.reserve(static_cast<size_t>(file.nr_rows()));
    } catch (const vekfind::Error&) {
        throw tools::BadFile(file.path() + ": memory is lacking for a group of " +
                             std::to_string(file.nr_rows()) + " rows");
    }
    return group;
}

vekfind::Group read_group(const BuildOptions& options, FeatureFile& file) {
    const uint64_t nr_rows = file.nr_rows();
    if (nr_rows > features::MAX_GROUP_ROWS)
        throw tools::BadFile(file.path() + ": " + std::to_string(nr_rows) +
                             " rows are more than a group file may have");
    const auto [ids, tags] = read_ids_and_tags(options, file);
    const features::Preparation preparation = preparation_of(options.rows, file.dim());

    vekfind::Group group = make_group(options, file, tags.size);
    features::Spread spread(file.dim());
    tools::Progress progress("rows", nr_rows);
    features::insert_rows(group, file, 0, nr_rows, ids, tags, preparation,
                          [&](const float* rows, size_t count, uint64_t) {
                              spread.add(rows, count);
                              progress.add(count);
                          });
    features::warn_if_far(spread, file.path());
    return group;
}

// Is put in place behind the file that it goes with, and is on the disk before.
class ConstantsFile {
public:
    ConstantsFile(const BuildOptions& options, const FeatureFile& file)
        : m_file(features::constants_path(options.output)) {
        m_file.write(features::constants_text(constants_of(options, file)));
        m_file.flush(m_file.nr_written());
    }
    void commit() { m_file.commit(); }

private:
    tools::OutputFile m_file;
};

// Output files come first: what cannot be written is known before the work.
void build_group(const BuildOptions& options, FeatureFile& file) {
    tools::OutputFile output(options.output);
    ConstantsFile constants(options, file);
    features::dump(read_group(options, file), output);
    constants.commit();
}

void build_int8(const BuildOptions& options, FeatureFile& file) {
    const auto writer = features::create_features(options.output, features::ElementType::INT8,
                                                  file.dim(), file.nr_rows());
    ConstantsFile constants(options, file);
    write_int8(file, *writer);
    writer->commit();
    constants.commit();
}

void build(const BuildOptions& options) {
    const std::string suffix = features::lower_case_suffix(options.output);
    if (suffix != ".vek" && suffix != ".npy")
        throw tools::BadUse(options.output +
                            ": the name of a group ends in .vek, that of 8-bit features in .npy");
    const bool is_int8 = suffix == ".npy";
    check(options, is_int8);
    const auto file = features::open_features(options.features);
    is_int8 ? build_int8(options, *file) : build_group(options, *file);
    std::cout << tools::printable(options.output) << ": " << file->nr_rows() << " rows of "
              << file->dim() << (is_int8 ? " int8\n" : " float32\n");
}

}  // namespace

void add_build(CLI::App& app) {
    auto options = std::make_shared<BuildOptions>();
    CLI::App* command = app.add_subcommand("build", "make a group file from features");
    command
        ->add_option("FEATURES", options->features,
                     ".npy of float32, float64, int8 or uint8, .fvecs, .bvecs, .csv or a group")
        ->required()
        ->type_name("");
    command
        ->add_option("-o,--output", options->output,
                     "the group, named .vek; or 8-bit features, named .npy, from int8 or uint8")
        ->required()
        ->type_name("GROUP.vek");
    command
        ->add_option("--ids", options->ids,
                     "an id for each row: .npy of integers, or text with a number a line; "
                     "without it those of a group, or the rows' numbers from 0 on")
        ->type_name("FILE");
    command
        ->add_option("--tags", options->tags,
                     "a tag for each row: .npy of integers or of shape (rows, bytes), or text with "
                     "a number a line")
        ->type_name("FILE");
    add_row_options(*command, options->rows);
    CLI::Option* scale =
        command->add_option("--scale", options->scale, "of the similarity; see `calibrate`");
    CLI::Option* bias = command->add_option("--bias", options->bias, "of the similarity");
    scale->needs(bias);
    bias->needs(scale);
    command->callback([options] { build(*options); });
}

}  // namespace commands
