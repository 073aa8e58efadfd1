// `vekfind export`: what a group file holds, as arrays.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "common/npy.h"
#include "common/output_file.h"
#include "common/progress.h"
#include "common/text.h"
#include "features/group_file.h"
#include "features/pieces.h"
#include "vekfind/commands.h"

namespace commands {
namespace {

struct ExportOptions {
    std::string group, output;
};

class ArrayFile {
public:
    ArrayFile(const std::string& path, npy::ElementType type, const std::vector<uint64_t>& shape)
        : m_file(path) {
        m_file.write(npy::header_text(type, shape));
    }

    template <typename T>
    void write(const std::vector<T>& elements) {
        m_file.write(elements.data(), elements.size() * sizeof(T));
    }
    void commit() {
        m_file.commit();
        std::cout << tools::printable(m_file.path()) << '\n';
    }

private:
    tools::OutputFile m_file;
};

void write_features(const features::GroupFile& group, ArrayFile& file) {
    std::vector<float> rows;
    tools::Progress progress("rows", group.nr_rows());
    features::for_each_span(0, group.nr_rows(), features::rows_per_piece(group.feature_size()),
                            [&](uint64_t first, size_t count) {
                                rows.resize(count * group.dim());
                                group.read_features(first, count, rows.data());
                                file.write(rows);
                                progress.add(count);
                            });
}

void write_tags(const features::GroupFile& group, ArrayFile& file) {
    std::vector<uint8_t> tags;
    features::for_each_span(0, group.nr_rows(), features::rows_per_piece(group.tag_size()),
                            [&](uint64_t first, size_t count) {
                                tags.resize(count * group.tag_size());
                                group.read_tags(first, count, tags.data());
                                file.write(tags);
                            });
}

// All are written before the first takes its place.
void export_group(const ExportOptions& options) {
    const features::GroupFile group(options.group);
    std::string prefix = options.output.empty() ? options.group : options.output;
    if (options.output.empty() && features::lower_case_suffix(prefix) == ".vek")
        prefix.resize(prefix.size() - 4);
    const uint64_t nr_rows = group.nr_rows();
    ArrayFile ids(prefix + ".ids.npy", npy::ElementType::UINT64, {nr_rows});
    ids.write(group.read_ids());
    ArrayFile rows(prefix + ".features.npy", npy::ElementType::FLOAT32, {nr_rows, group.dim()});
    write_features(group, rows);
    if (group.tag_size() > 0) {
        ArrayFile tags(prefix + ".tags.npy", npy::ElementType::UINT8, {nr_rows, group.tag_size()});
        write_tags(group, tags);
        tags.commit();
    }
    ids.commit();
    rows.commit();
}

}  // namespace

void add_export(CLI::App& app) {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* command =
        app.add_subcommand("export", "write ids, features and tags of a group as .npy");
    command->add_option("GROUP", options->group, "the group file")->required()->type_name("");
    command
        ->add_option("-o,--output", options->output,
                     "what the files' names begin with: PREFIX.ids.npy, PREFIX.features.npy and, "
                     "where there are tags, PREFIX.tags.npy; without it GROUP's name")
        ->type_name("PREFIX");
    command->callback([options] { export_group(*options); });
}

}  // namespace commands
