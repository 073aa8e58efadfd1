// Argsort by introspective sort and TopK by partition or heap, on the keys of sort_keys.h.
#pragma once

#include "kernels/operators/sorting.h"

namespace kern::naive {

// The keys of a row are allocated inside the kernel, once for all rows.
class ArgsortImpl final : public Argsort {
public:
    using Argsort::Argsort;
    void exec(const RawTensor& src, const RawTensor& dst, const RawTensor& indices,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout&, const TensorLayout&,
                              const TensorLayout&) override {
        return 0;
    }
};

// The workspace holds the keys of a row.
class TopKImpl final : public TopK {
public:
    using TopK::TopK;
    void exec(int32_t k, const RawTensor& data, const RawTensor& values, const RawTensor& indices,
              const Workspace& workspace) override;
    size_t workspace_in_bytes(int32_t k, const TensorLayout& data, const TensorLayout& values,
                              const TensorLayout& indices) override;
};

}  // namespace kern::naive
