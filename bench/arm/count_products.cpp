// Matrix products at the armv7 level, one region each, packing included. The numbers of the
// regions, their multiply-adds and limits are in count_products.baseline.
#include <vector>

#include "bench/arm/count_region.h"
#include "kernels/operators/matrix_mul.h"

namespace {

using kern::DType;
using kern::MatrixMulDataType;
using kern::TensorLayout;

// `queries` x `depth` by the transpose of `rows` x `depth`, as in a search.
struct Case {
    unsigned region;
    size_t queries, rows, depth;
    MatrixMulDataType data_type;
    DType in, out;
};

void run(const Case& item) {
    const auto handle = kern::make_handle_of_level(
        {kern::Platform::CPU, std::make_shared<kern::InlineDispatcher>()},
        kern::HandleLevel::ARMV7);
    const auto op = handle->create_operator<kern::MatrixMul>();
    op->param() = {false, true, item.data_type};
    const TensorLayout a({item.queries, item.depth}, item.in);
    const TensorLayout b({item.rows, item.depth}, item.in);
    const TensorLayout c({item.queries, item.rows}, item.out);
    // Zeros: the instructions do not depend on values.
    std::vector<uint8_t> a_bytes(a.span().high_byte), b_bytes(b.span().high_byte);
    std::vector<uint8_t> c_bytes(c.span().high_byte);
    std::vector<uint8_t> scratch(op->workspace_in_bytes(a, b, c));
    const count::Region region(item.region);
    op->exec({a_bytes.data(), a}, {b_bytes.data(), b}, {c_bytes.data(), c},
             {scratch.data(), scratch.size()});
}

}  // namespace

int main() {
    const DType f32 = DType::Float32(), i8 = DType::Int8(), i32 = DType::Int32();
    const Case cases[] = {
        {1, 16, 1024, 256, MatrixMulDataType::DEFAULT, f32, f32},
        {2, 1, 1024, 256, MatrixMulDataType::DEFAULT, f32, f32},
        {3, 16, 1024, 256, MatrixMulDataType::INT8_TO_INT32, i8, i32},
        {4, 1, 1024, 256, MatrixMulDataType::INT8_TO_INT32, i8, i32},
    };
    for (const Case& item : cases)
        run(item);
}
