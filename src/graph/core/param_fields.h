// A parameter record names its fields once, in the specialisation of `FIELDS` that stands beside
// the operator that uses it; all that walks over parameters follows from that list. Fields are
// visited one by one and never as raw memory, whose padding would count.
#pragma once

#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <vector>

#include "kernels/types/dtype.h"

namespace orb {

// Members of the record, in the order in which graph files hold them: `std::tuple{&R::a, &R::b}`.
template <typename Record>
inline constexpr auto FIELDS = nullptr;

// Calls the visitor with each field in turn; fields of a record that is not const may be changed.
template <typename Record, typename Visitor>
constexpr void visit_fields(Record& record, Visitor&& visitor) {
    const auto visit_all = [&](auto... member) { (visitor(record.*member), ...); };
    std::apply(visit_all, FIELDS<std::remove_const_t<Record>>);
}

// For operators without parameters.
struct NoParam {};
template <>
inline constexpr auto FIELDS<NoParam> = std::tuple<>{};

// A field as words that are equal exactly when the fields are: floats by their bits, so that a NaN
// equals itself.
template <typename Field>
void append_words(std::vector<uint64_t>& words, const Field& field) {
    if constexpr (std::is_same_v<Field, float>) {
        uint32_t bits = 0;
        std::memcpy(&bits, &field, sizeof(bits));
        words.push_back(bits);
    } else {
        static_assert(std::is_integral_v<Field> || std::is_enum_v<Field>);
        words.push_back(static_cast<uint64_t>(field));
    }
}
inline void append_words(std::vector<uint64_t>& words, kern::DType field) {
    words.push_back(reinterpret_cast<uintptr_t>(field.record()));
}
template <typename Element>
void append_words(std::vector<uint64_t>& words, const std::vector<Element>& field) {
    words.push_back(field.size());
    for (const Element& element : field)
        append_words(words, element);
}

}  // namespace orb
