// `vekfind convert`: features from one format to another, centered or as 8-bit integers.
#include <CLI/CLI.hpp>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>

#include "common/failure.h"
#include "common/progress.h"
#include "common/text.h"
#include "vekfind/commands.h"
#include "vekfind/int8.h"
#include "vekfind/options.h"

namespace commands {
namespace {

using features::ElementType;
using features::FeatureFile;
using features::FeatureWriter;
using features::Preparation;

struct ConvertOptions {
    std::string input, output;
    RowOptions rows;
    bool center = false, int8 = false;
    std::optional<float> int8_scale;
};

bool is_int8(ElementType type) {
    return type == ElementType::INT8 || type == ElementType::UINT8;
}

// "a/b.npy" -> "a/b.mean.npy".
std::string mean_path(const std::string& output) {
    return output.substr(0, output.size() - features::lower_case_suffix(output).size()) +
           ".mean.npy";
}

std::vector<float> mean_of(FeatureFile& file, const Preparation& preparation) {
    features::Spread spread(file.dim());
    tools::Progress progress("mean", file.nr_rows());
    features::for_each_piece(file, preparation, [&](float* rows, size_t count, uint64_t) {
        spread.add(rows, count);
        progress.add(count);
    });
    return {spread.mean().begin(), spread.mean().end()};
}

void write_floats(FeatureFile& file, const Preparation& preparation, FeatureWriter& writer) {
    tools::Progress progress("rows", file.nr_rows());
    features::for_each_piece(file, preparation, [&](float* rows, size_t count, uint64_t) {
        writer.write(rows, count);
        progress.add(count);
    });
}

void write_quantized(FeatureFile& file, const Preparation& preparation, float scale,
                     FeatureWriter& writer) {
    std::vector<int8_t> bytes;
    tools::Progress progress("rows", file.nr_rows());
    features::for_each_piece(file, preparation, [&](float* rows, size_t count, uint64_t) {
        bytes.resize(count * file.dim());
        quantize(rows, bytes.size(), scale, bytes.data());
        writer.write(bytes.data(), count);
        progress.add(count);
    });
}

// A scale that is given comes from the rows that these are the queries for.
void convert_to_int8(const ConvertOptions& options, FeatureFile& file,
                     const Preparation& preparation, FeatureWriter& writer) {
    const float scale =
        options.int8_scale ? *options.int8_scale : fit_int8_scale(file, preparation);
    write_quantized(file, preparation, scale, writer);
    std::cout << "int8 scale: " << tools::formatted("%.9g", static_cast<double>(scale))
              << " (an 8-bit element is the float times this)\n";
    if (options.int8_scale)
        return;
    const auto recall = measure_recall(file, preparation, scale);
    if (!recall)
        std::cout << "recall@10: not known from so few rows\n";
    else
        std::cout << "recall@10: " << tools::formatted("%.3f", recall->share) << " ("
                  << recall->nr_queries << " rows of the file searched in " << recall->nr_rows
                  << " others)\n";
}

void copy_bytes(FeatureFile& file, FeatureWriter& writer) {
    std::vector<uint8_t> rows;
    features::for_each_span(0, file.nr_rows(), features::rows_per_piece(file.row_bytes()),
                            [&](uint64_t first, size_t count) {
                                rows.resize(count * file.dim());
                                file.read(first, count, rows.data());
                                writer.write(rows.data(), count);
                            });
}

void convert(const ConvertOptions& options) {
    if (options.rows.allow_nan && (options.center || options.int8))
        throw tools::BadUse("--allow-nan: rows with NaN have no mean and no scale");
    if (options.int8_scale && !(*options.int8_scale > 0 && std::isfinite(*options.int8_scale)))
        throw tools::BadUse("--int8-scale: it is to be above 0, and a number that a float holds");
    const auto file = features::open_features(options.input);
    const bool is_float =
        !is_int8(file->type()) || options.center || options.rows.is_any() || options.int8_scale ||
        (!options.int8 && features::lower_case_suffix(options.output) == ".fvecs");
    const ElementType type = options.int8 ? ElementType::INT8
                             : is_float   ? ElementType::FLOAT32
                                          : file->type();
    const auto writer =
        features::create_features(options.output, type, file->dim(), file->nr_rows());
    if (!is_float) {
        options.int8 ? write_int8(*file, *writer) : copy_bytes(*file, *writer);
        return writer->commit();
    }
    Preparation preparation = preparation_of(options.rows, file->dim());
    std::optional<tools::OutputFile> mean_file;
    if (options.center) {
        Preparation checked;
        checked.allow_not_finite = preparation.allow_not_finite;
        preparation.mean = mean_of(*file, checked);
        mean_file.emplace(mean_path(options.output));
        mean_file->write(npy::header_text(ElementType::FLOAT32, {file->dim()}));
        mean_file->write(preparation.mean.data(), file->dim() * sizeof(float));
        mean_file->flush(mean_file->nr_written());
    }
    if (options.int8)
        convert_to_int8(options, *file, preparation, *writer);
    else
        write_floats(*file, preparation, *writer);
    writer->commit();
    if (mean_file) {
        mean_file->commit();
        std::cout << "mean: " << tools::printable(mean_file->path())
                  << " (subtract it from queries, too: --mean)\n";
    }
}

}  // namespace

void add_convert(CLI::App& app) {
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* command =
        app.add_subcommand("convert", "write features in another format, centered or as bytes");
    command->add_option("A", options->input, "features: .npy, .fvecs, .bvecs, .csv or a group")
        ->required()
        ->type_name("");
    command
        ->add_option("B", options->output, "the new file, by its name .npy, .fvecs, .bvecs or .csv")
        ->required()
        ->type_name("");
    command
        ->add_flag("--center", options->center,
                   "subtract the mean row, and keep it in B.mean.npy (B without its ending)")
        ->excludes(add_row_options(*command, options->rows));
    CLI::Option* int8 = command->add_flag(
        "--int8", options->int8, "make 8-bit integers, and tell the recall@10 that it costs");
    command
        ->add_option("--int8-scale", options->int8_scale,
                     "8-bit elements are the floats times this; without it the largest becomes 127")
        ->needs(int8);
    command->callback([options] { convert(*options); });
}

}  // namespace commands
