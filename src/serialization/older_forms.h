// Forms of parameters that earlier files have. They are read only: what is loaded is the operator
// of today, and is written in its current form.
#pragma once

#include "serialization/operator_registry.h"

namespace orb {

// u32 mode, i32 axis.
OperatorRecord reduce_without_data_type();
// u32 number of a plain data type.
OperatorRecord conversion_to_plain_type();
// u32 number of a data type; a quantised one is followed by its f32 scale, and the asymmetric one
// by its u8 zero point too.
OperatorRecord conversion_by_word();

}  // namespace orb
