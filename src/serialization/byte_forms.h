// The forms in which single fields stand in a graph file, over anything with `read(buffer, bytes)`,
// `read_more(buffer, bytes)` for the rest of a field, `bytes_left()` and `fail(fault)`, or with
// `write(buffer, bytes)`. Fixed-width numbers are in host byte order, little-endian on all targets.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "graph/core/param_fields.h"
#include "kernels/check.h"
#include "kernels/types/dtype.h"
#include "serialization/graph_file_error.h"

namespace orb {

constexpr uint64_t MAX_STRING_BYTES = 1048576;

template <typename T, typename Source>
T read_word(Source& source) {
    static_assert(std::is_arithmetic_v<T>);
    T value;
    source.read(&value, sizeof(value));
    return value;
}
template <typename T, typename Sink>
void write_word(Sink& sink, T value) {
    static_assert(std::is_arithmetic_v<T>);
    sink.write(&value, sizeof(value));
}

// Groups of 7 bits, the most significant first; all but the last have bit 7 set.
template <typename Source>
uint64_t read_varint(Source& source) {
    constexpr int MAX_BYTES = 10;
    uint64_t value = 0;
    auto byte = read_word<uint8_t>(source);
    for (int i = 1;; ++i) {
        if (value >> 57 != 0)
            break;
        value = value << 7 | (byte & 0x7F);
        if ((byte & 0x80) == 0)
            return value;
        if (i == MAX_BYTES)
            break;
        source.read_more(&byte, sizeof(byte));
    }
    source.fail(GraphFileFault::NUMBER);
}
template <typename Sink>
void write_varint(Sink& sink, uint64_t value) {
    uint8_t bytes[10];
    size_t begin = sizeof(bytes);
    bytes[--begin] = value & 0x7F;
    while ((value >>= 7) != 0)
        bytes[--begin] = static_cast<uint8_t>(0x80 | (value & 0x7F));
    sink.write(bytes + begin, sizeof(bytes) - begin);
}

template <typename Source>
std::string read_text(Source& source, uint64_t bytes) {
    if (bytes > source.bytes_left())
        source.fail(GraphFileFault::TRUNCATED);
    std::string text(static_cast<size_t>(bytes), '\0');
    if (!text.empty())
        source.read(text.data(), text.size());
    return text;
}
template <typename Source>
std::string read_string(Source& source) {
    const uint64_t bytes = read_varint(source);
    if (bytes > MAX_STRING_BYTES)
        source.fail(GraphFileFault::STRING);
    return read_text(source, bytes);
}
template <typename Sink>
void write_string(Sink& sink, const std::string& text) {
    KERN_CHECK(text.size() <= MAX_STRING_BYTES);
    write_varint(sink, text.size());
    sink.write(text.data(), text.size());
}

template <typename Source>
float read_scale(Source& source) {
    const auto scale = read_word<float>(source);
    if (!std::isfinite(scale) || scale <= 0)
        source.fail(GraphFileFault::DTYPE);
    return scale;
}

constexpr uint64_t NR_PLAIN_DTYPES = 10;

// What follows the number of a data type.
template <typename Source>
kern::DType read_dtype_param(Source& source, uint64_t number) {
    switch (number) {
        case static_cast<uint64_t>(kern::DTypeEnum::QUANTIZED8_ASYMM): {
            const float scale = read_scale(source);
            return kern::DType::Quantized8Asymm(scale, read_word<uint8_t>(source));
        }
        case static_cast<uint64_t>(kern::DTypeEnum::QUANTIZED_S32):
            return kern::DType::QuantizedS32(read_scale(source));
        case static_cast<uint64_t>(kern::DTypeEnum::QUANTIZED_S8):
            return kern::DType::QuantizedS8(read_scale(source));
        default:
            if (number >= NR_PLAIN_DTYPES)
                source.fail(GraphFileFault::DTYPE);
            return kern::DType::from_enum(static_cast<uint32_t>(number));
    }
}
template <typename Source>
kern::DType read_dtype(Source& source) {
    return read_dtype_param(source, read_varint(source));
}
// A scale that no reader would take stops the process.
template <typename Sink>
void write_scale(Sink& sink, float scale) {
    KERN_CHECK(std::isfinite(scale) && scale > 0);
    write_word(sink, scale);
}
template <typename Sink>
void write_dtype(Sink& sink, kern::DType dtype) {
    write_varint(sink, static_cast<uint64_t>(dtype.enum_value()));
    switch (dtype.enum_value()) {
        case kern::DTypeEnum::QUANTIZED8_ASYMM: {
            const auto& param = dtype.param<kern::Quantized8AsymmParam>();
            write_scale(sink, param.scale);
            write_word(sink, param.zero_point);
            break;
        }
        case kern::DTypeEnum::QUANTIZED_S32:
            write_scale(sink, dtype.param<kern::QuantizedS32Param>().scale);
            break;
        case kern::DTypeEnum::QUANTIZED_S8:
            write_scale(sink, dtype.param<kern::QuantizedS8Param>().scale);
            break;
        default:
            break;
    }
}

}  // namespace orb
