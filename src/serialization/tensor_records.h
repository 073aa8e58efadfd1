// The registry records of operators that keep a tensor.
#pragma once

#include "serialization/operator_registry.h"

namespace orb {

// A byte: 0 for an input, whose tensor record has no value, 1 for a parameter, whose value the
// loads of a loader share.
OperatorRecord shared_tensor_record();
// One tensor record with its value.
OperatorRecord constant_record();

}  // namespace orb
