// `vekfind calibrate`: the constants of a group and thresholds from labelled features.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>

#include "common/failure.h"
#include "common/json.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "common/text.h"
#include "features/constants.h"
#include "features/feature_file.h"
#include "features/pieces.h"
#include "vekfind/class_pairs.h"
#include "vekfind/commands.h"
#include "vekfind/labels.h"
#include "vekfind/operating_points.h"

namespace commands {
namespace {

using namespace calibration;
using tools::formatted;

constexpr uint64_t MOST_PAIRS = 10'000'000;

struct Options {
    std::string features, labels, mean, plot, group;
    double prior = 0.5;
    uint64_t seed = 1;
    bool normalize = false, json = false;
};

struct Calibration {
    uint64_t nr_rows = 0, dim = 0, nr_classes = 0;
    uint64_t nr_same = 0, nr_other = 0;  // pairs there are; those looked at may be fewer
    Pairs pairs;
    LogisticLaw law;
    double error = 0;
    std::vector<OperatingPoint> points;
};

std::vector<float> read_rows(features::FeatureFile& file, const Options& options) {
    const size_t dim = file.dim();
    if (file.nr_rows() > SIZE_MAX / sizeof(float) / dim)
        throw tools::BadFile(file.path() + ": the rows do not fit into memory");
    features::Preparation preparation;
    preparation.normalize = options.normalize;
    if (!options.mean.empty())
        preparation.mean = features::read_mean(options.mean, dim);
    std::vector<float> rows;
    rows.reserve(static_cast<size_t>(file.nr_rows()) * dim);
    tools::Progress progress("rows", file.nr_rows());
    features::for_each_piece(file, preparation, [&](float* piece, size_t count, uint64_t) {
        rows.insert(rows.end(), piece, piece + count * dim);
        progress.add(count);
    });
    return rows;
}

// As many pairs of one class as of two where there are enough of both; of what one kind lacks the
// second, which the low rates need, gets more.
Pairs measure(const ClassPairs& classes, const std::vector<float>& rows, size_t dim,
              const Options& options) {
    const uint64_t nr_same = std::min(classes.nr_same(), MOST_PAIRS / 2);
    const uint64_t nr_other = std::min(classes.nr_other(), MOST_PAIRS - nr_same);
    Pairs pairs;
    pairs.prior = options.prior;
    pairs.same = classes.distances(rows.data(), dim, true, nr_same, options.seed);
    pairs.other = classes.distances(rows.data(), dim, false, nr_other, options.seed);
    std::sort(pairs.same.begin(), pairs.same.end());
    std::sort(pairs.other.begin(), pairs.other.end());
    return pairs;
}

LogisticLaw fit(const Pairs& pairs, const std::string& path) {
    const LogisticLaw law = fit_logistic_law(pairs);
    if (!(law.scale > 0))
        throw tools::BadFile(path +
                             ": rows of one class are no nearer to each other than others, "
                             "so no distance tells them apart");
    if (!std::isfinite(law.scale) || !std::isfinite(law.bias))
        throw tools::BadFile(path + ": the scale or the bias is beyond what a float holds");
    return law;
}

Calibration calibrate(features::FeatureFile& file, const Options& options) {
    const ClassPairs classes(read_labels(options.labels, file.nr_rows()));
    if (classes.nr_same() == 0)
        throw tools::BadFile(options.labels + ": no two rows have the same label");
    if (classes.nr_other() == 0)
        throw tools::BadFile(options.labels + ": all rows have the same label");
    Calibration result;
    result.nr_rows = file.nr_rows();
    result.dim = file.dim();
    result.nr_classes = classes.nr_classes();
    result.nr_same = classes.nr_same();
    result.nr_other = classes.nr_other();
    result.pairs = measure(classes, read_rows(file, options), file.dim(), options);
    result.law = fit(result.pairs, options.features);
    result.error = calibration_error(result.law, result.pairs);
    result.points = operating_points(result.law, result.pairs);
    return result;
}

// What stands beside the group (or 8-bit features), if its rows may be compared as those here were.
features::Constants constants_of_group(const Options& options, size_t dim) {
    const auto group = features::open_features(options.group);
    if (group->dim() != dim)
        throw tools::BadFile(options.group + ": rows of " + std::to_string(group->dim()) +
                             " elements; those of " + options.features + " have " +
                             std::to_string(dim));
    const std::string path = features::constants_path(options.group);
    features::Constants constants = features::read_constants(options.group);
    if (!std::filesystem::exists(path))
        constants.normalize = options.normalize;
    if (constants.normalize != options.normalize)
        throw tools::BadUse(path + " says \"normalize\": " +
                            (constants.normalize ? "true, so --normalize is needed"
                                                 : "false, so --normalize does not fit"));
    return constants;
}

std::string count_text(uint64_t looked_at, uint64_t there_are) {
    return std::to_string(looked_at) +
           (looked_at == there_are ? "" : " of " + std::to_string(there_are));
}

std::string remark(const OperatingPoint& point) {
    if (point.is_sure())
        return "";
    const char* lack = point.has_threshold() ? "too few pairs" : "no threshold";
    return std::string(lack) + "; " + std::to_string(point.needed_pairs()) + " are needed";
}

void print(const Calibration& result) {
    const Pairs& pairs = result.pairs;
    std::cout << result.nr_rows << " rows of " << result.dim << " elements, " << result.nr_classes
              << " classes\npairs of one class: " << count_text(pairs.same.size(), result.nr_same)
              << ", of two: " << count_text(pairs.other.size(), result.nr_other) << "\n\nscale "
              << formatted("%.9g", double{result.law.scale}) << "\nbias "
              << formatted("%.9g", double{result.law.bias})
              << "\n\nSimilarity 0.5 is at squared distance "
              << formatted("%.6g", result.law.squared_distance(0.5)) << "; calibration error "
              << formatted("%.3f", result.error) << ", prior " << formatted("%g", pairs.prior)
              << ".\n";
    if (pairs.same.back() < pairs.other.front())
        std::cout << "A distance tells all pairs apart, so the scale is as steep as so many pairs "
                     "can vouch for.\n";
    std::cout << '\n';
    tools::Table table("rrrrrl", {"false accept rate", "threshold", "squared distance",
                                  "true accept rate", "false accepts", ""});
    for (const OperatingPoint& point : result.points) {
        const auto cell = [&](double number, const char* format) {
            return point.has_threshold() ? formatted(format, number) : "-";
        };
        table.add({formatted("%g", point.rate()), cell(double{point.threshold}, "%.9g"),
                   cell(point.squared_distance, "%.6g"), cell(point.true_rate, "%.4f"),
                   point.has_threshold() ? std::to_string(point.nr_false) : "-", remark(point)});
    }
    table.print(std::cout);
}

void print_json(const Options& options, const Calibration& result) {
    tools::JsonWriter json(std::cout);
    json.begin_object();
    json.key("rows").value(result.nr_rows);
    json.key("dim").value(result.dim);
    json.key("classes").value(result.nr_classes);
    json.key("same_pairs").value(uint64_t{result.pairs.same.size()});
    json.key("same_pairs_in_all").value(result.nr_same);
    json.key("other_pairs").value(uint64_t{result.pairs.other.size()});
    json.key("other_pairs_in_all").value(result.nr_other);
    json.key("seed").value(options.seed);
    json.key("prior").value(options.prior);
    json.key("normalize").value(options.normalize);
    json.key("scale").value(double{result.law.scale});
    json.key("bias").value(double{result.law.bias});
    json.key("calibration_error").value(result.error);
    json.key("rates").begin_array();
    for (const OperatingPoint& point : result.points) {
        json.begin_object();
        json.key("false_accept_rate").value(point.rate());
        json.key("needed_pairs").value(point.needed_pairs());
        json.key("enough_pairs").value(point.is_sure());
        if (point.has_threshold()) {
            json.key("threshold").value(double{point.threshold});
            json.key("squared_distance").value(point.squared_distance);
            json.key("true_accept_rate").value(point.true_rate);
            json.key("false_accepts").value(point.nr_false);
        }
        json.end_object();
    }
    json.end_array();
    json.end_object();
    json.finish();
}

void run(const Options& options) {
    if (!(options.prior > 0 && options.prior < 1))
        throw tools::BadUse("--prior is a probability between 0 and 1");
    const auto file = features::open_features(options.features);
    features::Constants constants;
    if (!options.group.empty())
        constants = constants_of_group(options, file->dim());
    const Calibration result = calibrate(*file, options);
    if (!options.plot.empty()) {
        tools::OutputFile plot(options.plot);
        plot.write(draw_roc_curve(result.pairs, result.points));
        plot.commit();
    }
    if (!options.group.empty()) {
        constants.scale = result.law.scale;
        constants.bias = result.law.bias;
        features::write_constants(options.group, constants);
    }
    options.json ? print_json(options, result) : print(result);
}

}  // namespace

void add_calibrate(CLI::App& app) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand(
        "calibrate", "find scale, bias and thresholds from features whose classes are known");
    command->add_option("FEATURES", options->features, ".npy, .fvecs, .bvecs, .csv or a group")
        ->required()
        ->type_name("");
    command
        ->add_option("--labels", options->labels,
                     "the class of each row: .npy of integers, or text with a label a line")
        ->required()
        ->type_name("FILE");
    command
        ->add_option("--prior", options->prior,
                     "how likely two features belong together where the similarity will serve")
        ->capture_default_str();
    command
        ->add_option("--seed", options->seed,
                     "of the sample where there are more than ten million pairs")
        ->capture_default_str();
    command
        ->add_option("--mean", options->mean,
                     "the mean that `convert --center` has kept, to subtract from each row")
        ->type_name("FILE.npy");
    command->add_flag("--normalize", options->normalize, "bring each row to length 1");
    command->add_option("--plot", options->plot, "draw the rates of true and of false accepts")
        ->type_name("FILE.svg");
    command
        ->add_option("--write", options->group,
                     "put scale and bias beside this group, or these 8-bit features")
        ->type_name("GROUP.vek");
    command->add_flag("--json", options->json, "one JSON object instead of text");
    command->callback([options] { run(*options); });
}

}  // namespace commands
