// Marks a loop whose iterations never depend on each other, so that the compiler may vectorise it
// although its output may be the very memory of an input. Macros only; for the kernels' own files.
#pragma once

#if defined(__clang__)
// Formulas that have no vector form stay scalar; that is no reason to warn.
#pragma clang diagnostic ignored "-Wpass-failed"
#define KERN_INDEPENDENT_LOOP _Pragma("clang loop vectorize(assume_safety)")
#else
#define KERN_INDEPENDENT_LOOP _Pragma("GCC ivdep")
#endif
