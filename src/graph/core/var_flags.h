// Properties of a var, set by the operator that makes it.
#pragma once

#include <cstdint>

namespace orb {

using VarFlags = uint32_t;

namespace var_flag {

// The operator supplies the memory at run time, through `adopt_tensor` or `adopt_var_memory`.
constexpr VarFlags NO_SYSTEM_ALLOC = 0x001;
// Only a record of loop state; never together with NO_SYSTEM_ALLOC.
constexpr VarFlags LOOP_STATE = 0x002;
// Memory comes from the dynamic allocator at run time.
constexpr VarFlags DYNAMIC_STORAGE = 0x004;
// The value persists between runs.
constexpr VarFlags PERSISTENT = 0x008;
// Content that lasts for its operator's step: not an input of anything, always in the default
// format, and a constant shape is not frozen. Workspaces have it.
constexpr VarFlags VOLATILE_CONTENT = 0x010;
// The shape may stay empty.
constexpr VarFlags ALLOW_EMPTY_SHAPE = 0x020;
// The memory exists before execution, whatever inference says.
constexpr VarFlags FORCE_STATIC = 0x040;
// Never made dynamic by the planner; only together with PERSISTENT.
constexpr VarFlags PERSISTENT_STATIC = 0x080;
// The owner is in the graph. From then on only the bits of ADDABLE_AFTER_INSERTION may be added.
constexpr VarFlags INSERTED = 0x100;
// Dynamic storage decided by the memory planner; never together with NO_SYSTEM_ALLOC.
constexpr VarFlags PLANNED_DYNAMIC = 0x200;

constexpr VarFlags ADDABLE_AFTER_INSERTION =
    NO_SYSTEM_ALLOC | DYNAMIC_STORAGE | PERSISTENT | PLANNED_DYNAMIC;
constexpr VarFlags DYNAMIC_BITS = NO_SYSTEM_ALLOC | DYNAMIC_STORAGE | PLANNED_DYNAMIC;

}  // namespace var_flag

}  // namespace orb
