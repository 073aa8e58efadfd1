#include "vekfind/labels.h"

#include <string_view>
#include <unordered_map>

#include "common/failure.h"
#include "common/line_reader.h"
#include "common/npy.h"
#include "features/feature_file.h"

namespace calibration {
namespace {

class Numbering {
public:
    // Labels of the same bytes are of one class.
    void add(std::string_view label) {
        const auto next = static_cast<uint32_t>(m_numbers.size());
        m_class_of_row.push_back(m_numbers.emplace(label, next).first->second);
    }
    std::vector<uint32_t> take() { return std::move(m_class_of_row); }

private:
    std::unordered_map<std::string, uint32_t> m_numbers;
    std::vector<uint32_t> m_class_of_row;
};

void add_array(Numbering& numbering, const std::string& path) {
    const npy::Array array = npy::read(path);
    const bool is_float = array.type == npy::ElementType::FLOAT16 ||
                          array.type == npy::ElementType::FLOAT32 ||
                          array.type == npy::ElementType::FLOAT64;
    if (is_float || array.shape.size() != 1)
        throw tools::BadFile(path + ": " + npy::name_of(array.type) + " with " +
                             std::to_string(array.shape.size()) +
                             " axes; labels are integers with one");
    const size_t size = npy::bytes_of(array.type);
    const auto* bytes = static_cast<const char*>(static_cast<const void*>(array.bytes.data()));
    for (size_t i = 0; i < array.shape[0]; ++i)
        numbering.add({bytes + i * size, size});
}

void add_lines(Numbering& numbering, const std::string& path) {
    const tools::InputFile file(path);
    tools::LineReader lines(file);
    for (std::string_view line; lines.next(line);) {
        line.remove_prefix(line.find_first_not_of(" \t\r"));
        line.remove_suffix(line.size() - 1 - line.find_last_not_of(" \t\r"));
        numbering.add(line);
    }
}

}  // namespace

std::vector<uint32_t> read_labels(const std::string& path, uint64_t nr_rows) {
    Numbering numbering;
    const bool is_npy = features::lower_case_suffix(path) == ".npy";
    (is_npy ? add_array : add_lines)(numbering, path);
    std::vector<uint32_t> class_of_row = numbering.take();
    if (class_of_row.size() != nr_rows)
        throw tools::BadFile(path + ": " + std::to_string(class_of_row.size()) + " labels for " +
                             std::to_string(nr_rows) + " rows");
    return class_of_row;
}

}  // namespace calibration
