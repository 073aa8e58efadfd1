// What the convolutions have in common: parameters, shapes, the record of sizes and of one call
// that every algorithm reads, and the algorithms themselves.
//
// Images are {n, channels, height, width}, or {n, channels, depth, height, width} for those of
// three spatial axes, all dense. The filter is {oc, ic, fh, fw}, or {groups, oc / groups, ic /
// groups, fh, fw} where SPARSE is GROUP, and has fd before fh for three axes. Along each axis an
// output has floor((in + 2 pad - dilate (f - 1) - 1) / stride) + 1 elements; beyond the image it
// sees zeros.
//
// The operands have the same names in all directions: src is the image, dst what the filter makes
// of it. Backward data and backward filter write src and filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "kernels/operators/matrix_mul.h"
#include "kernels/workspace.h"

namespace kern {

enum class ConvolutionMode : uint32_t {
    CROSS_CORRELATION = 0,
    CONVOLUTION = 1,  // the filter is turned by half a turn
};
enum class ConvolutionSparse : uint32_t { DENSE = 0, GROUP = 1 };
enum class ConvolutionFormat : uint32_t { NCHW = 0 };

struct ConvolutionParam {
    ConvolutionMode mode = ConvolutionMode::CROSS_CORRELATION;
    uint32_t pad_h = 0, pad_w = 0;
    uint32_t stride_h = 1, stride_w = 1;
    uint32_t dilate_h = 1, dilate_w = 1;
    ConvolutionSparse sparse = ConvolutionSparse::DENSE;
    ConvolutionFormat format = ConvolutionFormat::NCHW;
    MatrixMulDataType data_type = MatrixMulDataType::DEFAULT;  // what is accumulated into what
};

struct Convolution3DParam {
    ConvolutionMode mode = ConvolutionMode::CROSS_CORRELATION;
    uint32_t pad_d = 0, pad_h = 0, pad_w = 0;
    uint32_t stride_d = 1, stride_h = 1, stride_w = 1;
    uint32_t dilate_d = 1, dilate_h = 1, dilate_w = 1;
    ConvolutionSparse sparse = ConvolutionSparse::DENSE;
    ConvolutionFormat format = ConvolutionFormat::NCHW;  // with the depth before the height
    MatrixMulDataType data_type = MatrixMulDataType::DEFAULT;
};

// The parameters of either.
struct ConvolutionRules {
    struct Axis {
        size_t pad, stride, dilate;
    };
    ConvolutionMode mode;
    ConvolutionSparse sparse;
    ConvolutionFormat format;
    MatrixMulDataType data_type;
    size_t spatial_ndim;
    Axis axes[3];  // of the depth, or no padding and steps of 1, of the height and of the width

    ConvolutionRules(const ConvolutionParam& param);
    ConvolutionRules(const Convolution3DParam& param);
};

enum class ConvolutionOperand { SRC, FILTER, DST };

// How a level multiplies, for the algorithms of the levels below it; see convolution_products.h.
struct ConvolutionProducts;

// A convolution without its memory. Zeroed before it is filled: two records are the same when their
// bytes are.
struct ConvolutionSizeRecord {
    size_t n;
    size_t id, ih, iw, od, oh, ow;  // depths are 1 where there are two spatial axes
    ConvolutionFormat format;
    ConvolutionMode mode;
    size_t group;
    size_t icpg, ocpg;  // channels of one group
    size_t spatial_ndim;
    size_t stride_d, stride_h, stride_w;
    size_t pad_d, pad_h, pad_w;
    size_t fd, fh, fw;
    size_t dilate_d, dilate_h, dilate_w;
    DType src_type, filter_type, dst_type;
    size_t src_image_step, dst_image_step;  // elements from one image of the batch to the next
    const ConvolutionProducts* products;    // of the operator's level; null at naive

    ConvolutionSizeRecord() { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }
    bool same_bytes(const ConvolutionSizeRecord& other) const {
        return std::memcmp(static_cast<const void*>(this), static_cast<const void*>(&other),
                           sizeof(*this)) == 0;
    }

    size_t taps() const { return fd * fh * fw; }
    size_t src_plane() const { return id * ih * iw; }  // elements of a channel
    size_t dst_plane() const { return od * oh * ow; }
    size_t depth() const { return icpg * taps(); }  // products that make up one output
};

static_assert(std::has_unique_object_representations_v<ConvolutionSizeRecord>,
              "no padding that a copy could leave undefined");

// A call. Borrows the memory; a value, so tasks carry copies.
struct ConvolutionRunRecord : ConvolutionSizeRecord {
    void* src = nullptr;  // two of the three are only read
    void* filter = nullptr;
    void* dst = nullptr;
    Workspace workspace;

    ConvolutionRunRecord() = default;
    explicit ConvolutionRunRecord(const ConvolutionSizeRecord& size)
        : ConvolutionSizeRecord(size) {}

    // Calls the kernel for the part of each group, as a convolution of its own.
    void for_each_group(void (*kernel)(const ConvolutionRunRecord&)) const;
};

// One way of convolving: a constant of a level. Its functions are given records of one group.
struct ConvolutionAlgorithm {
    using Kernel = void (*)(const ConvolutionRunRecord&);

    const char* name;
    HandleLevel level_tag;  // whose it is; ARMV7 has the tag of ARM_COMMON
    bool (*usable)(const ConvolutionSizeRecord&);
    size_t (*workspace_in_bytes)(const ConvolutionSizeRecord&);
    Kernel (*dispatch_kernel)(const ConvolutionSizeRecord&);

    bool is_reproducible() const { return true; }
};

// The shape of what a filter makes of images. Shapes and parameters that do not fit each other, and
// a filter that is larger than the padded image, stop the process.
TensorShape convolved_shape(const ConvolutionRules& rules, const TensorShape& src,
                            const TensorShape& filter);
// The shape of the smallest images of which a filter makes `dst`.
TensorShape least_src_shape(const ConvolutionRules& rules, const TensorShape& filter,
                            const TensorShape& dst);
// Of a call with these layouts, of which one is written: it has the dtype of
// MatrixMul::deduce_dtype for that of the others. Layouts, dtypes and parameters that do not fit
// each other stop the process.
ConvolutionSizeRecord convolution_size(const ConvolutionRules& rules, const TensorLayout& src,
                                       const TensorLayout& filter, const TensorLayout& dst,
                                       ConvolutionOperand written = ConvolutionOperand::DST);

}  // namespace kern
