// Parameters of operators that go by two names, with and without "v2" at the end.
#pragma once

#include <cstdint>

#include "graph/core/param_fields.h"

namespace orb {

enum class NameForm : uint32_t { PLAIN, V2 };

// A graph tells the forms apart; a file has one row for both, and loads the plain one.
template <typename Param>
struct NamedParam : Param {
    NameForm form = NameForm::PLAIN;
};
template <typename Param>
inline constexpr auto FIELDS<NamedParam<Param>> = FIELDS<Param>;

}  // namespace orb
