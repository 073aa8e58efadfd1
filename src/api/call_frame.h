// The one frame of every exported function that can fail: null checks, one guarded call, a status.
// It has no state and takes no lock; whoever holds the context owns the group behind it.
#pragma once

#include <algorithm>
#include <exception>
#include <initializer_list>

#include "group/feature_group.h"
#include "store/error.h"
#include "vekfind/vekfind.h"

namespace vek {

// A context is the address of the object's root class.
inline FeatureGroup* group_of(VEKContext ctx) {
    return static_cast<FeatureGroup*>(reinterpret_cast<OpaqueTypeBase*>(ctx));
}

inline VEKContext context_of(OpaqueTypeBase* object) {
    return reinterpret_cast<VEKContext>(object);
}

// Runs `call` unless one of the `required` pointers is null. There is deliberately no catch-all: an
// exception of a foreign type can only come from a caller's predicate (or from the cancellation of
// its thread) and belongs to the caller.
template <typename Call>
VEKStatus call_frame(std::initializer_list<const void*> required, const Call& call) {
    if (std::find(required.begin(), required.end(), nullptr) != required.end())
        return VEK_NULL_POINTER;
    try {
        call();
    } catch (const Error& error) {
        return error.code();
    } catch (const std::exception&) {
        return VEK_UNKNOWN_ERROR;
    }
    return VEK_OK;
}

}  // namespace vek
