#include "kernels/types/dtype.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace kern {
namespace {

using Category = DTypeCategory;
using Sign = DTypeSignedness;

// In the order of their numbers; constant-initialised, so usable from any static constructor.
constexpr DTypeRecord PLAIN_TYPES[] = {
    {"Float32", 2, 0, DTypeEnum::FLOAT32, Category::FLOAT, Sign::SIGNED, false},
    {"Uint8", 0, 0, DTypeEnum::UINT8, Category::INTEGER, Sign::UNSIGNED, false},
    {"Int8", 0, 0, DTypeEnum::INT8, Category::INTEGER, Sign::SIGNED, false},
    {"Int16", 1, 0, DTypeEnum::INT16, Category::INTEGER, Sign::SIGNED, false},
    {"Int32", 2, 0, DTypeEnum::INT32, Category::INTEGER, Sign::SIGNED, false},
    {"IntB1", 0, 1, DTypeEnum::INT_B1, Category::LOW_BIT, Sign::NONE, false},
    {"IntB2", 0, 2, DTypeEnum::INT_B2, Category::LOW_BIT, Sign::NONE, false},
    {"IntB4", 0, 4, DTypeEnum::INT_B4, Category::LOW_BIT, Sign::NONE, false},
    {"Byte", 0, 0, DTypeEnum::BYTE, Category::NONE, Sign::NONE, false},
    {"Float16", 1, 0, DTypeEnum::FLOAT16, Category::FLOAT, Sign::SIGNED, false},
};
constexpr uint32_t NR_PLAIN_TYPES = sizeof(PLAIN_TYPES) / sizeof(PLAIN_TYPES[0]);

// Quantized8Asymm counts as signed although its elements are unsigned bytes: the numbers that they
// stand for have signs, through the zero point. No kernel branches on it.
constexpr DTypeRecord QUANTIZED8_ASYMM_FIELDS = {
    "Quantized8Asymm", 0, 0, DTypeEnum::QUANTIZED8_ASYMM, Category::QUANTISED, Sign::SIGNED, true};
constexpr DTypeRecord QUANTIZED_S32_FIELDS = {
    "QuantizedS32", 2, 0, DTypeEnum::QUANTIZED_S32, Category::QUANTISED, Sign::SIGNED, true};
constexpr DTypeRecord QUANTIZED_S8_FIELDS = {
    "QuantizedS8", 0, 0, DTypeEnum::QUANTIZED_S8, Category::QUANTISED, Sign::SIGNED, true};

size_t hash_scale(float scale) {
    if (scale == 0.0f)
        return 0;  // 0.0 and -0.0 compare equal, so they must hash equal
    uint32_t bits = 0;
    std::memcpy(&bits, &scale, sizeof(bits));
    return std::hash<uint32_t>{}(bits);
}

size_t hash_param(const Quantized8AsymmParam& param) {
    return hash_scale(param.scale) ^ param.zero_point;
}
size_t hash_param(const QuantizedS32Param& param) {
    return hash_scale(param.scale);
}
size_t hash_param(const QuantizedS8Param& param) {
    return hash_scale(param.scale);
}

bool same_param(const Quantized8AsymmParam& a, const Quantized8AsymmParam& b) {
    return a.scale == b.scale && a.zero_point == b.zero_point;
}
template <typename Param>
bool same_param(const Param& a, const Param& b) {
    return a.scale == b.scale;
}

}  // namespace

// Interns the records of one quantised type. Records are never freed: pointers to them are the
// identity of the types made so far. Any thread may call.
template <typename Param>
class QuantisedTypeTable {
public:
    explicit QuantisedTypeTable(const DTypeRecord& fields) : m_fields(fields), m_records(1) {}

    DType get(const Param& param) {
        KERN_CHECK(!std::isnan(param.scale));
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto& slot = m_records[param];
        if (!slot)
            slot.reset(new ParamDTypeRecord<Param>{m_fields, param});
        return DType(slot.get());
    }

private:
    struct Hash {
        size_t operator()(const Param& param) const { return hash_param(param); }
    };
    struct Equal {
        bool operator()(const Param& a, const Param& b) const { return same_param(a, b); }
    };

    const DTypeRecord& m_fields;
    std::mutex m_mutex;
    std::unordered_map<Param, std::unique_ptr<ParamDTypeRecord<Param>>, Hash, Equal> m_records;
};

DType DType::Float32() {
    return from_enum(0);
}
DType DType::Uint8() {
    return from_enum(1);
}
DType DType::Int8() {
    return from_enum(2);
}
DType DType::Int16() {
    return from_enum(3);
}
DType DType::Int32() {
    return from_enum(4);
}
DType DType::IntB1() {
    return from_enum(5);
}
DType DType::IntB2() {
    return from_enum(6);
}
DType DType::IntB4() {
    return from_enum(7);
}
DType DType::Byte() {
    return from_enum(8);
}
DType DType::Float16() {
    return from_enum(9);
}

DType DType::from_enum(uint32_t number) {
    KERN_CHECK(number < NR_PLAIN_TYPES);
    return DType(&PLAIN_TYPES[number]);
}

// The tables are never destroyed, so that types stay valid in destructors that run at exit.
DType DType::Quantized8Asymm(float scale, uint8_t zero_point) {
    static auto& table = *new QuantisedTypeTable<Quantized8AsymmParam>(QUANTIZED8_ASYMM_FIELDS);
    return table.get({scale, zero_point});
}

DType DType::QuantizedS32(float scale) {
    static auto& table = *new QuantisedTypeTable<QuantizedS32Param>(QUANTIZED_S32_FIELDS);
    return table.get({scale});
}

DType DType::QuantizedS8(float scale) {
    static auto& table = *new QuantisedTypeTable<QuantizedS8Param>(QUANTIZED_S8_FIELDS);
    return table.get({scale});
}

unsigned DType::size_log2() const {
    KERN_CHECK(!is_low_bit());
    return m_record->size_log2;
}

size_t DType::byte_size(size_t count) const {
    if (is_low_bit())
        return checked_add(checked_mul(count, m_record->low_bits), 7) >> 3;
    return checked_mul(count, size_t{1} << m_record->size_log2);
}

void DType::check_param(DTypeEnum wanted) const {
    KERN_CHECK(m_record && m_record->enum_value == wanted);
}

}  // namespace kern
