// Data types of tensor elements. A DType is one pointer to an immutable record that lives until the
// process ends, so it is copied and compared freely on any thread. Quantised types are interned by
// their parameters; they too may be made on any thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kern {

// Numbers never change.
enum class DTypeEnum : uint32_t {
    FLOAT32 = 0,
    UINT8 = 1,
    INT8 = 2,
    INT16 = 3,
    INT32 = 4,
    INT_B1 = 5,
    INT_B2 = 6,
    INT_B4 = 7,
    BYTE = 8,
    FLOAT16 = 9,
    QUANTIZED8_ASYMM = 100000,
    QUANTIZED_S32 = 100001,
    QUANTIZED_S8 = 100002,
};

enum class DTypeCategory : uint32_t {
    NONE = 0,
    FLOAT = 1,
    INTEGER = 2,
    LOW_BIT = 3,
    QUANTISED = 4
};
enum class DTypeSignedness : uint32_t { NONE = 0, UNSIGNED = 1, SIGNED = 2 };

struct DTypeRecord {
    const char* name;
    uint8_t size_log2;  // log2 of the element size in bytes; 0 for low-bit types
    uint16_t low_bits;  // bits per element of a low-bit type, otherwise 0
    DTypeEnum enum_value;
    DTypeCategory category;
    DTypeSignedness signedness;
    bool has_param;
};

// Parameters of the quantised types. A stored element q means scale * (q - zero_point).
struct Quantized8AsymmParam {
    static constexpr DTypeEnum ENUM_VALUE = DTypeEnum::QUANTIZED8_ASYMM;
    float scale;
    uint8_t zero_point;
};
struct QuantizedS32Param {
    static constexpr DTypeEnum ENUM_VALUE = DTypeEnum::QUANTIZED_S32;
    float scale;
};
struct QuantizedS8Param {
    static constexpr DTypeEnum ENUM_VALUE = DTypeEnum::QUANTIZED_S8;
    float scale;
};

template <typename Param>
struct ParamDTypeRecord : DTypeRecord {
    Param param;
};

class DType {
public:
    constexpr DType() = default;  // the invalid type

    static DType Float32();
    static DType Uint8();
    static DType Int8();
    static DType Int16();
    static DType Int32();
    static DType IntB1();
    static DType IntB2();
    static DType IntB4();
    static DType Byte();
    static DType Float16();
    // Equal parameters give the same type; a NaN scale stops the process.
    static DType Quantized8Asymm(float scale, uint8_t zero_point);
    static DType QuantizedS32(float scale);
    static DType QuantizedS8(float scale);

    // A plain type by its number; a quantised or unknown number stops the process.
    static DType from_enum(uint32_t number);

    bool valid() const { return m_record != nullptr; }
    // The operations below need a valid type.
    const char* name() const { return m_record->name; }
    DTypeEnum enum_value() const { return m_record->enum_value; }
    DTypeCategory category() const { return m_record->category; }
    DTypeSignedness signedness() const { return m_record->signedness; }
    bool is_low_bit() const { return m_record->low_bits != 0; }
    uint16_t low_bits() const { return m_record->low_bits; }
    // Log2 of the element's bytes; a low-bit type stops the process.
    unsigned size_log2() const;
    size_t element_bytes() const { return size_t{1} << size_log2(); }
    // Bytes of `count` packed elements; a result that does not fit stops the process.
    size_t byte_size(size_t count) const;
    // The quantisation parameters; stops the process on a type of another kind.
    template <typename Param>
    const Param& param() const;

    // "invalid" for the invalid type: the form that error texts use.
    const char* name_or_invalid() const { return m_record ? m_record->name : "invalid"; }

    friend bool operator==(DType a, DType b) { return a.m_record == b.m_record; }
    friend bool operator!=(DType a, DType b) { return a.m_record != b.m_record; }
    const DTypeRecord* record() const { return m_record; }

private:
    constexpr explicit DType(const DTypeRecord* record) : m_record(record) {}
    void check_param(DTypeEnum wanted) const;

    template <typename Param>
    friend class QuantisedTypeTable;

    const DTypeRecord* m_record = nullptr;
};

template <typename Param>
const Param& DType::param() const {
    check_param(Param::ENUM_VALUE);
    return static_cast<const ParamDTypeRecord<Param>*>(m_record)->param;
}

}  // namespace kern
