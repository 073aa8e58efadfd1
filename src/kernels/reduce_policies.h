// What the modes of Reduce do with elements, and the selection of a kernel by mode and dtype. A
// policy over the accumulator type T has
//   start()          the neutral value
//   leaf(x)          what an element counts for
//   combine(a, b)    two results, rounded or wrapped to T
//   finish(a, n)     the result of n elements
#pragma once

#include <limits>
#include <type_traits>

#include "kernels/arithmetic.h"
#include "kernels/check.h"
#include "kernels/reduce.h"

namespace kern::reduction {

template <typename T>
struct Plain {
    static T leaf(T x) { return x; }
    static T finish(T result, size_t) { return result; }
};

template <typename T>
struct Sum : Plain<T> {
    static T start() { return narrow<T>(Working<T>(0)); }
    static T combine(T a, T b) { return narrow<T>(widen(a) + widen(b)); }
};

template <typename T>
struct SumSqr : Sum<T> {
    static T leaf(T x) { return narrow<T>(widen(x) * widen(x)); }
};

template <typename T>
struct Product : Plain<T> {
    static T start() { return narrow<T>(Working<T>(1)); }
    static T combine(T a, T b) { return narrow<T>(widen(a) * widen(b)); }
};

template <typename T>
struct Min : Plain<T> {
    static T start() {
        if constexpr (std::is_integral<T>::value)
            return std::numeric_limits<T>::max();
        else
            return narrow<T>(std::numeric_limits<float>::infinity());
    }
    static T combine(T a, T b) { return widen(a) < widen(b) ? a : b; }
};

template <typename T>
struct Max : Plain<T> {
    static T start() {
        if constexpr (std::is_integral<T>::value)
            return std::numeric_limits<T>::min();
        else
            return narrow<T>(-std::numeric_limits<float>::infinity());
    }
    static T combine(T a, T b) { return widen(a) > widen(b) ? a : b; }
};

template <typename T>
struct Mean : Sum<T> {
    static T finish(T sum, size_t count) {
        if constexpr (std::is_integral<T>::value)
            return static_cast<T>(int64_t{sum} / static_cast<int64_t>(count));
        else
            return narrow<T>(widen(sum) / static_cast<float>(count));
    }
};

// Kernel<Policy>::run for the mode over accumulators of type T, from Kernel's own choice of stored
// types.
template <typename T, template <typename> class Kernel>
auto select_mode(ReduceMode mode) -> decltype(&Kernel<Sum<T>>::run) {
    switch (mode) {
        case ReduceMode::SUM:
            return &Kernel<Sum<T>>::run;
        case ReduceMode::SUM_SQR:
            return &Kernel<SumSqr<T>>::run;
        case ReduceMode::PRODUCT:
            return &Kernel<Product<T>>::run;
        case ReduceMode::MIN:
            return &Kernel<Min<T>>::run;
        case ReduceMode::MAX:
            return &Kernel<Max<T>>::run;
        case ReduceMode::MEAN:
            return &Kernel<Mean<T>>::run;
    }
    KERN_FAIL();
}

}  // namespace kern::reduction
