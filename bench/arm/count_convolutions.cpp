// Convolutions at the armv7 level, one region each, with all padding, packing and transforms. The
// numbers of the regions, their multiply-adds (those of the direct form) and limits are in
// count_convolutions.baseline.
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/arm/count_region.h"
#include "kernels/operators/convolution_forward.h"

namespace {

using kern::DType;
using kern::TensorLayout;

// `channels` to as many, with square images and filters of side 3.
struct Case {
    unsigned region;
    const char* algorithm;
    size_t groups, channels, side;
    uint32_t pad;
    kern::MatrixMulDataType data_type;
    DType in, out;
};

const kern::ConvolutionAlgorithm* find(kern::ConvolutionForward& op, const Case& item,
                                       const TensorLayout& src, const TensorLayout& filter,
                                       const TensorLayout& dst) {
    for (const auto* algorithm : op.all_algorithms(src, filter, dst)) {
        if (algorithm->name == std::string(item.algorithm))
            return algorithm;
    }
    std::abort();
}

void run(const Case& item) {
    const auto handle = kern::make_handle_of_level(
        {kern::Platform::CPU, std::make_shared<kern::InlineDispatcher>()},
        kern::HandleLevel::ARMV7);
    const auto op = handle->create_operator<kern::ConvolutionForward>();
    op->param().data_type = item.data_type;
    op->param().pad_h = op->param().pad_w = item.pad;
    op->param().sparse = kern::ConvolutionSparse::GROUP;
    const size_t all = item.groups * item.channels;
    const TensorLayout src({1, all, item.side, item.side}, item.in);
    const TensorLayout filter({item.groups, item.channels, item.channels, 3, 3}, item.in);
    const TensorLayout dst(kern::convolved_shape(op->param(), src, filter), item.out);
    // Zeros: the instructions do not depend on values.
    std::vector<uint8_t> src_bytes(src.span().high_byte), filter_bytes(filter.span().high_byte);
    std::vector<uint8_t> dst_bytes(dst.span().high_byte);
    op->force_algorithm(find(*op, item, src, filter, dst));
    std::vector<uint8_t> scratch(op->workspace_in_bytes(src, filter, dst));
    const count::Region region(item.region);
    op->exec({src_bytes.data(), src}, {filter_bytes.data(), filter}, {dst_bytes.data(), dst},
             {scratch.data(), scratch.size()});
}

}  // namespace

int main() {
    const DType f32 = DType::Float32(), i8 = DType::Int8(), i16 = DType::Int16();
    constexpr auto FLOAT = kern::MatrixMulDataType::DEFAULT;
    constexpr auto INT8 = kern::MatrixMulDataType::INT8_TO_INT16;
    const Case cases[] = {
        {1, "F32MATMUL", 1, 64, 56, 1, FLOAT, f32, f32},
        {2, "F32STRD1", 1, 16, 56, 1, FLOAT, f32, f32},
        {3, "WINOGRAD", 1, 64, 56, 0, FLOAT, f32, f32},
        {4, "F32STRD1", 32, 1, 28, 1, FLOAT, f32, f32},
        {5, "F32STRD1", 8, 1, 56, 1, FLOAT, f32, f32},
        {6, "I8816DIRECT", 1, 16, 56, 1, INT8, i8, i16},
    };
    for (const Case& item : cases)
        run(item);
}
