#include "features/ids.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "common/failure.h"
#include "common/line_reader.h"
#include "common/npy.h"
#include "features/feature_file.h"
#include "vekfind/vekfind.h"

namespace features {
namespace {

using npy::ElementType;

[[noreturn]] void fail_row(const std::string& path, uint64_t row, const std::string& text) {
    throw tools::BadFile(path + ": row " + std::to_string(row) + ": " + text);
}

void check_count(const std::string& path, uint64_t count, uint64_t nr_rows) {
    if (count != nr_rows)
        throw tools::BadFile(path + ": " + std::to_string(count) + " numbers for " +
                             std::to_string(nr_rows) + " rows");
}

bool is_npy(const std::string& path) {
    return lower_case_suffix(path) == ".npy";
}

std::vector<uint64_t> numbers_of_text(const std::string& path) {
    const tools::InputFile file(path);
    tools::LineReader lines(file);
    std::vector<uint64_t> numbers;
    for (std::string_view line; lines.next(line);) {
        line.remove_prefix(line.find_first_not_of(" \t\r"));
        line.remove_suffix(line.size() - 1 - line.find_last_not_of(" \t\r"));
        uint64_t number;
        const char* const wanted_end = line.data() + line.size();
        const auto [end, error] = std::from_chars(line.data(), wanted_end, number);
        if (error != std::errc() || end != wanted_end)
            fail_row(path, numbers.size(),
                     "byte " + std::to_string(lines.offset()) +
                         ": no number from 0 to 18446744073709551615");
        numbers.push_back(number);
    }
    return numbers;
}

template <typename T>
std::vector<uint64_t> widened(const npy::Array& array, const std::string& path) {
    std::vector<uint64_t> numbers(array.bytes.size() / sizeof(T));
    for (size_t i = 0; i < numbers.size(); ++i) {
        T number;
        std::memcpy(&number, array.bytes.data() + i * sizeof(T), sizeof(T));
        if (number < 0)
            fail_row(path, i, std::to_string(number) + " is below 0");
        numbers[i] = static_cast<std::make_unsigned_t<T>>(number);
    }
    return numbers;
}

bool is_integer(ElementType type) {
    return type != ElementType::FLOAT16 && type != ElementType::FLOAT32 &&
           type != ElementType::FLOAT64;
}

std::vector<uint64_t> numbers_of_npy(const std::string& path) {
    const npy::Array array = npy::read(path);
    if (array.shape.size() != 1)
        throw tools::BadFile(path + ": an array of " + std::to_string(array.shape.size()) +
                             " axes; ids have one");
    switch (array.type) {
        case ElementType::INT8:
            return widened<int8_t>(array, path);
        case ElementType::UINT8:
            return widened<uint8_t>(array, path);
        case ElementType::INT16:
            return widened<int16_t>(array, path);
        case ElementType::UINT16:
            return widened<uint16_t>(array, path);
        case ElementType::INT32:
            return widened<int32_t>(array, path);
        case ElementType::UINT32:
            return widened<uint32_t>(array, path);
        case ElementType::INT64:
            return widened<int64_t>(array, path);
        case ElementType::UINT64:
            return widened<uint64_t>(array, path);
        default:
            throw tools::BadFile(path + ": elements of type " + npy::name_of(array.type) +
                                 " are no integers");
    }
}

Tags tags_of_npy(const std::string& path, uint64_t nr_rows) {
    npy::Array array = npy::read(path);
    const size_t nr_axes = array.shape.size();
    const size_t element_bytes = npy::bytes_of(array.type);
    if (!is_integer(array.type) || nr_axes < 1 || nr_axes > 2 ||
        (nr_axes == 2 && (element_bytes != 1 || array.shape[1] == 0)))
        throw tools::BadFile(path + ": tags are one integer a row, or bytes of shape (rows, size)");
    check_count(path, array.shape[0], nr_rows);
    const size_t size = nr_axes == 2 ? array.shape[1] : element_bytes;
    if (size > UINT32_MAX)
        throw tools::BadFile(path + ": tags of " + std::to_string(size) + " bytes are too long");
    return {static_cast<uint32_t>(size), std::move(array.bytes)};
}

Tags tags_of_text(const std::string& path, uint64_t nr_rows) {
    const std::vector<uint64_t> numbers = numbers_of_text(path);
    check_count(path, numbers.size(), nr_rows);
    const uint64_t most = numbers.empty() ? 0 : *std::max_element(numbers.begin(), numbers.end());
    Tags tags;
    tags.size = most <= UINT8_MAX ? 1 : most <= UINT16_MAX ? 2 : most <= UINT32_MAX ? 4 : 8;
    tags.bytes.resize(numbers.size() * tags.size);
    for (size_t i = 0; i < numbers.size(); ++i)
        std::memcpy(tags.bytes.data() + i * tags.size, &numbers[i], tags.size);
    return tags;
}

}  // namespace

std::vector<uint64_t> read_ids(const std::string& path, uint64_t nr_rows) {
    std::vector<uint64_t> ids = is_npy(path) ? numbers_of_npy(path) : numbers_of_text(path);
    check_count(path, ids.size(), nr_rows);
    check_ids(ids, path);
    return ids;
}

void check_ids(const std::vector<uint64_t>& ids, const std::string& path) {
    const auto row_of = [&](uint64_t id, size_t from) {
        return static_cast<size_t>(
            std::find(ids.begin() + static_cast<ptrdiff_t>(from), ids.end(), id) - ids.begin());
    };
    const size_t invalid = row_of(VEK_INVALID_ID_VALUE, 0);
    if (invalid < ids.size())
        fail_row(path, invalid, "the id 18446744073709551615 is not one that a row may have");
    std::vector<uint64_t> sorted = ids;
    std::sort(sorted.begin(), sorted.end());
    const auto equal = std::adjacent_find(sorted.begin(), sorted.end());
    if (equal == sorted.end())
        return;
    const size_t first = row_of(*equal, 0);
    fail_row(path, row_of(*equal, first + 1),
             "the id " + std::to_string(*equal) + " is that of row " + std::to_string(first));
}

Tags read_tags(const std::string& path, uint64_t nr_rows) {
    return is_npy(path) ? tags_of_npy(path, nr_rows) : tags_of_text(path, nr_rows);
}

}  // namespace features
