#include "serialization/operator_table.h"

#include "graph/opr/arg_max.h"
#include "graph/opr/arg_min.h"
#include "graph/opr/argsort.h"
#include "graph/opr/batched_matrix_multiply.h"
#include "graph/opr/cond_take.h"
#include "graph/opr/conv_bias.h"
#include "graph/opr/convolution.h"
#include "graph/opr/cumsum.h"
#include "graph/opr/dimension_shuffle.h"
#include "graph/opr/elementwise_operator.h"
#include "graph/opr/inplace_add.h"
#include "graph/opr/mask_convolution.h"
#include "graph/opr/matrix_multiply.h"
#include "graph/opr/reduce_operator.h"
#include "graph/opr/top_k.h"
#include "graph/opr/type_convert.h"
#include "serialization/older_forms.h"
#include "serialization/param_record.h"
#include "serialization/tensor_records.h"

namespace orb {
namespace {

struct Row {
    uint64_t id;
    const char* title;                     // empty where an operator has none
    OperatorRecord (*record)() = nullptr;  // null while the operator is not available
};

// clang-format off
const Row ROWS[] = {
    {0xfac09d9959017eb1, ""},
    {0xebb39bdd9278b6da, "elementwise", current_form<ElementwiseOperator>},
    {0xf11aa711766d98e8, "inplace_add", current_form<InplaceAdd>},
    {0x1039677b31b78c24, "reduce, older form", reduce_without_data_type},
    {0xcd196d64cbcb7ece, "reduce", current_form<ReduceOperator>},
    {0x100aebffc451691, "type conversion, older form", conversion_to_plain_type},
    {0x3977a112730c6844, "type conversion, older form with quantised types", conversion_by_word},
    {0x72826b476173bf91, "type conversion", current_form<TypeConvert>},
    {0x59507e5620a94e88, "matrix multiplication", current_form<MatrixMultiply>},
    {0x99309f37432041d3, "batched_matrix_mul", current_form<BatchedMatrixMultiply>},
    {0x2b02295a8c69e15c, ""},
    {0xc5fc51762933a3e9, "matrix_inv"},
    {0xe1aa3a2851c4c794, ""},
    {0xbc193eef48c27b7e, "conv_fwdv2", current_form<ConvolutionForward>},
    {0xb9c1f1df5155061e, "conv_bwd_data", current_form<ConvolutionBackwardData>},
    {0xb1b87e381228d93a, "conv_bwd_filter", current_form<ConvolutionBackwardFilter>},
    {0x1fd3bdfbc60c1609, "images2neibs"},
    {0x8383d7076a08cfdc, "images2neibs_grad"},
    {0x9edd650ec3be561c, "local"},
    {0xa2f0c1ec34498d62, "local_bwd_data"},
    {0xf55948a65984977c, "local_bwd_filter"},
    {0xa96490c473be6219, "glocal"},
    {0x9109fc366e00475b, "glocal_bwd_data"},
    {0xed3eb39bf898cd54, "glocal_bwd_filter"},
    {0xeb5c6ab46dca7ac, "lrn"},
    {0xf7166fa105bfd2ec, "lrn_bwd"},
    {0x498add8cddd348fe, "pooling"},
    {0x99f3dfbdc3b10b7d, "pooling_bwd"},
    {0x780c2abbf359d096, "roi_pooling"},
    {0x9ee4378c69376aea, "roi_pooling_backward"},
    {0x2e983067975c0ac3, "mask_conv_fwd", current_form<MaskConvolution>},
    {0x18b1e0951c8cb059, "mask_propagate", current_form<MaskPropagate>},
    {0x36eef72ba63bd7e6, "conv3d", current_form<Convolution3DForward>},
    {0xb79ee11e62876d2e, "conv3d_bwd_data", current_form<Convolution3DBackwardData>},
    {0x1391dfb0a26ea51c, "conv3d_bwd_filter", current_form<Convolution3DBackwardFilter>},
    {0xc2910e49be9f970a, "conv_bias", current_form<ConvBias>},
    {0x2c01491139ff113e, "NnlibOperator"},
    {0x8ae33c917f30787a, "empty_const"},
    {0x1ae9ebf552e8d977, "warp_perspective"},
    {0x36479744a43898eb, "warp_perspective_bwd_data"},
    {0x116c5fe73157ec02, "warp_perspective_bwd_mat"},
    {0xae601c1a17e232, "rotate"},
    {0x42cb97def3264bcc, "cvt_color"},
    {0x6bfc366c9104534f, "gaussion_blur"},
    {0x2c3edb2221a0f1d8, "resize_bwd"},
    {0xd15bcf46293e429e, "warp_affine, older form"},
    {0x583ff4cb5287fa47, "warp_affine"},
    {0xc634d0ea0b9e64ee, "resize, older form"},
    {0xc36034e42c7cf1f1, "resize"},
    {0xe28cb86cb8fa0857, "indexing_multi_axis_vec"},
    {0x70e43b5c35d2b296, "indexing_set_multi_axis_vec"},
    {0xe115fd589c153faa, "indexing_incr_multi_axis_vec"},
    {0xf0f2a5dbe523e69c, ""},
    {0xb46262b6495a638a, "batched_mesh_indexing"},
    {0xe917ca5fca445231, ""},
    {0xdf040baf9610c785, "batched_incr_mesh_indexing"},
    {0x8120596f333573a1, ""},
    {0xaeb54ac9c5679f9f, "batched_set_mesh_indexing"},
    {0x16738e745961099d, "indexing_one_hot"},
    {0x3f74b803f56b0e5, "indexing_remap"},
    {0x7a7d85c9c9fe0c1e, "indexing_remap_bwd"},
    {0x64df3855d66e8cef, "indexing_set_one_hot"},
    {0x21d09889fd709229, ""},
    {0x4bb6b1881c563cf2, "shared", shared_tensor_record},
    {0x87c714eb24feeedc, "shared, second form"},
    {0x6752bcb3d59fa18f, "shared, third form"},
    {0x60d52856bbd5a2b1, "const", constant_record},
    {0x8e1c47fb74ca3905, ""},
    {0x13267eddd4493d87, "multi_dv"},
    {0xa001d36fb062bb67, "argmax", current_form<ArgMax>},
    {0x3e87314f4f25baf3, "argmin", current_form<ArgMin>},
    {0x2d0855a4f892fc9a, "argsort", current_form<Argsort>},
    {0xc5a266f3f671241f, "argsort_bwd"},
    {0x4a8ec0378366419, "cumsum", current_form<Cumsum>},
    {0x97edb07c379b365c, "cond_take", current_form<CondTake>},
    {0x4bfd849ba331b3f, "top_k", current_form<TopK>},
    {0x4bc31f74af14dcb1, ""},
    {0xdc24c7c65fffa9bc, ""},
    {0xfcdbdacbcbcb3b3f, "uniform_rng"},
    {0xe143cc4a3c7f4198, "gaussian_rng"},
    {0x14980c1587cb2341, "alloc"},
    {0xe5045fab0fbe8cad, "linspce"},
    {0x4c06d843e5ec7926, ""},
    {0x3a2abc8e88a7bc4d, ""},
    {0xed3af9d55d55a3a7, "set_subtensor"},
    {0x7a3dcb93d571f0f, "incr_subtensor"},
    {0xcf6b22f53dd1ac95, "shape_of"},
    {0x82a946faed669751, "reshape"},
    {0x3c73ab106bad1ac1, "broadcast"},
    {0xe2c8823996052a93, "dimshuffle", current_form<DimensionShuffle>},
    {0x3ee25d678b07fdd6, "axis_add_rm"},
    {0xfecc481dc4fe12f, "concat"},
    {0x466ab7adfa744135, "ParamPackConcat"},
    {0xed6f2eb5617e173f, "split"},
    {0x656ebbac2bf40e02, "relayout_format"},
    {0xc7c3c0890778d858, "mark_dyn"},
    {0xadc1ed1627e96eb4, "no_brdcst"},
    {0x2fa1135e38a4c2a0, "identity"},
    {0x11013543f90ccd9b, "assert_eq"},
    // Only copied; never in a file.
    {0x921169ba528c75aa, ""},
    {0x72d3d4bbef243269, ""},
};
// clang-format on

}  // namespace

void add_all_operators(OperatorRegistry& registry) {
    for (const Row& row : ROWS) {
        OperatorRecord record = row.record ? row.record() : OperatorRecord();
        record.persist_id = row.id;
        record.title = row.title;
        registry.add(std::move(record));
    }
}

}  // namespace orb
