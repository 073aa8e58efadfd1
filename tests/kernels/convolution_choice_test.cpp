// Which algorithms of convolution there are for which arguments, which one runs, and what memory
// they ask for.
#include "kernels/armv7/convolution_forward.h"
#include "tests/kernels/convolution_test_util.h"

namespace kern_test {
namespace {

using Algorithm = kern::ConvolutionAlgorithm;

struct Shape {
    size_t ic, ih, iw, oc, fh, fw;
};
struct Options {
    uint32_t stride = 1, pad = 0, dilate = 1;
    bool is_turned = false;
    size_t groups = 1, images = 1;
};

ConvolutionProblem make_problem(const Shape& shape, const Options& options = {}) {
    ConvolutionProblem problem;
    auto& param = problem.param;
    param.stride_h = param.stride_w = options.stride;
    param.pad_h = param.pad_w = options.pad;
    param.dilate_h = param.dilate_w = options.dilate;
    param.mode = static_cast<ConvolutionMode>(options.is_turned);
    problem.src = {options.images, options.groups * shape.ic, shape.ih, shape.iw};
    problem.filter = {shape.oc, shape.ic, shape.fh, shape.fw};
    if (options.groups > 1) {
        param.sparse = ConvolutionSparse::GROUP;
        problem.filter = {options.groups, shape.oc, shape.ic, shape.fh, shape.fw};
    }
    return problem;
}

std::string names_of(kern::HandleLevel level, const ConvolutionProblem& problem,
                     const std::string& kind_name = "float") {
    std::string names;
    for (const Algorithm* algorithm : algorithms_of(level, problem, kind(kind_name)))
        names += (names.empty() ? "" : " ") + std::string(algorithm->name);
    return names;
}

TEST(ConvolutionChoice, ListsWhatIsUsableInOrder) {
    const struct {
        Shape shape;
        Options options;
        const char* names;
    } floats[] = {
        {{8, 9, 9, 8, 3, 3}, {}, "F32STRD1 F32DIRECT F32MATMUL WINOGRAD F N"},
        {{8, 9, 9, 8, 3, 3}, {1, 1}, "F32STRD1 F32DIRECT F32MATMUL F N"},
        {{12, 9, 9, 8, 3, 3}, {}, "F32STRD1 F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 12, 3, 3}, {}, "F32STRD1 F32DIRECT F32MATMUL F N"},
        {{31, 9, 9, 31, 3, 3}, {}, "F32STRD1 F32DIRECT F32MATMUL F N"},
        {{32, 9, 9, 8, 3, 3}, {}, "F32MATMUL F32STRD1 F32DIRECT WINOGRAD F N"},
        {{8, 9, 9, 32, 3, 3}, {}, "F32MATMUL F32STRD1 F32DIRECT WINOGRAD F N"},
        {{8, 9, 9, 8, 3, 3}, {1, 0, 1, true}, "F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 8, 3, 3}, {1, 0, 2}, "N"},
        {{8, 9, 9, 8, 3, 3}, {1, 0, 1, false, 3, 2}, "F32STRD1 F32DIRECT F32MATMUL WINOGRAD F N"},
        {{32, 9, 9, 8, 1, 1}, {}, "F32C11 F32MATMUL F32DIRECT F N"},
        {{31, 9, 9, 8, 1, 1}, {}, "F32C11 F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 8, 1, 1}, {1, 1}, "F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 8, 1, 1}, {2}, "F32MATMUL F N"},
        {{8, 9, 9, 8, 1, 1}, {1, 0, 1, true}, "F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 8, 2, 2}, {2}, "ARMV7F32STRD2 F32STRD2 F32MATMUL F N"},
        {{8, 9, 9, 8, 7, 7}, {2}, "ARMV7F32STRD2 F32STRD2 F32MATMUL F N"},
        {{32, 9, 9, 8, 3, 3}, {2}, "ARMV7F32STRD2 F32MATMUL F32STRD2 F N"},
        {{8, 9, 9, 8, 3, 3}, {2, 0, 1, true}, "F32MATMUL F N"},
        {{8, 9, 9, 8, 4, 4}, {2}, "F32MATMUL F N"},
        {{8, 9, 9, 8, 3, 3}, {3}, "F32MATMUL F N"},
        {{8, 9, 9, 8, 5, 5}, {}, "F32STRD1 F32DIRECT F32MATMUL F N"},
        {{8, 9, 9, 8, 2, 3}, {}, "F32DIRECT F32MATMUL F N"},
        {{8, 12, 12, 8, 7, 9}, {}, "F32DIRECT F32MATMUL F N"},
        {{8, 12, 12, 8, 8, 8}, {}, "F32MATMUL F N"},
        {{8, 3, 5, 8, 3, 3}, {}, "F32STRD1 F32MATMUL WINOGRAD F N"},
        {{8, 4, 4, 8, 3, 3}, {}, "F32STRD1 F32DIRECT F32MATMUL WINOGRAD F N"},
        {{8, 1, 3, 8, 2, 2}, {1, 1}, "F32STRD1 F32MATMUL F N"},
    };
    for (const auto& item : floats) {
        const auto problem = make_problem(item.shape, item.options);
        EXPECT_EQ(names_of(ARMV7, problem), item.names) << problem.text();
        EXPECT_EQ(names_of(ARMV7, problem, "half"), "N");
    }
    const struct {
        Shape shape;
        Options options;
        const char* names;
    } bytes[] = {
        {{8, 8, 8, 8, 1, 1}, {}, "I8816C11 N"},
        {{8, 8, 8, 8, 1, 1}, {1, 1}, "N"},
        {{8, 8, 8, 8, 5, 5}, {1, 1}, "I8816DIRECT N"},
        {{8, 8, 8, 8, 7, 7}, {}, "N"},
        {{8, 8, 8, 8, 2, 3}, {}, "N"},
        {{8, 8, 8, 8, 3, 3}, {1, 0, 1, true}, "N"},
        {{8, 8, 8, 8, 3, 3}, {2}, "I8816STRD2 N"},
        {{8, 8, 8, 8, 2, 2}, {2}, "I8816STRD2F2 I8816STRD2 N"},
        {{8, 8, 8, 8, 2, 2}, {2, 1}, "I8816STRD2 N"},
        {{8, 9, 8, 8, 2, 2}, {2}, "I8816STRD2 N"},
        {{8, 8, 9, 8, 2, 2}, {2}, "I8816STRD2 N"},
        {{8, 8, 8, 8, 7, 7}, {2}, "N"},
    };
    for (const auto& item : bytes) {
        const auto problem = make_problem(item.shape, item.options);
        EXPECT_EQ(names_of(ARMV7, problem, "8 to 16"), item.names) << problem.text();
        EXPECT_EQ(names_of(ARMV7, problem, "8 to 32"), "DEFAULT");
    }
}

// The level that all Arm targets share has no handle of its own.
TEST(ConvolutionChoice, LevelsHaveSetsOfTheirOwn) {
    const auto problem = make_problem({8, 9, 9, 8, 1, 1});
    EXPECT_EQ(names_of(FALLBACK, problem), "F N");
    EXPECT_EQ(names_of(NAIVE, problem), "DEFAULT");
    const auto handle = make_handle(ARMV7);
    kern::arm_common::ConvolutionForwardImpl shared(handle.get());
    EXPECT_STREQ(shared.algorithm_set_name(), "AC0");
    const DType dtype = DType::Float32();
    const auto list = shared.all_algorithms({problem.src, dtype}, {problem.filter, dtype},
                                            {problem.dst(), dtype});
    EXPECT_STREQ(list.front()->name, "F32DIRECT");
    for (auto [level, name] : {std::pair(NAIVE, "DEFAULT"), {FALLBACK, "F0"}, {ARMV7, "A30"}})
        EXPECT_STREQ(
            make_handle(level)->create_operator<kern::ConvolutionForward>()->algorithm_set_name(),
            name);
}

const Algorithm* algorithm_named(const std::string& name, const ConvolutionProblem& problem,
                                 const Kind& kind) {
    for (const Algorithm* algorithm : algorithms_of(ARMV7, problem, kind)) {
        if (algorithm->name == name)
            return algorithm;
    }
    return nullptr;
}

// The armv7 level, counting how often it is asked for a choice.
class Counted : public kern::armv7::ConvolutionForwardImpl {
public:
    using ConvolutionForwardImpl::ConvolutionForwardImpl;
    const Algorithm* heuristic_group_free(const kern::ConvolutionSizeRecord& size,
                                          size_t limit) override {
        ++m_count;
        return ConvolutionForwardImpl::heuristic_group_free(size, limit);
    }
    size_t count() const { return m_count; }

private:
    size_t m_count = 0;
};

size_t workspace_of(const std::string& name, const ConvolutionProblem& problem,
                    const std::string& kind_name = "float") {
    const auto handle = make_handle(ARMV7);
    const auto op = handle->create_operator<kern::ConvolutionForward>();
    const Kind& of = kind(kind_name);
    op->param() = problem.param;
    op->param().data_type = of.data_type;
    op->force_algorithm(algorithm_named(name, problem, of));
    return op->workspace_in_bytes({problem.src, of.a}, {problem.filter, of.b},
                                  {problem.dst(), of.c});
}

TEST(ConvolutionChoice, AsksForTheStatedMemory) {
    const Options padded{1, 1}, turned{1, 0, 1, true}, twice{1, 0, 1, false, 1, 2};
    const Shape shape{3, 10, 12, 5, 3, 3};
    // Each part is a multiple of 512 bytes, and there are 512 more.
    EXPECT_EQ(workspace_of("F32STRD1", make_problem(shape, padded)), 2048 + 512);  // 2032
    EXPECT_EQ(workspace_of("F32STRD1", make_problem(shape)), 512 + 512);           // 496
    EXPECT_EQ(workspace_of("F32STRD1", make_problem(shape, twice)), 512 + 512);
    EXPECT_EQ(workspace_of("F32DIRECT", make_problem(shape, turned)), 512 + 1024 + 512);  // 540
    EXPECT_EQ(workspace_of("ARMV7F32STRD2", make_problem(shape, {2, 1})), 2048 + 512);
    EXPECT_EQ(workspace_of("I8816DIRECT", make_problem(shape, padded), "8 to 16"),
              1024 + 512);  // 520
    const auto one = make_problem({3, 10, 12, 5, 1, 1});
    const size_t product = workspace_of("F32C11", one);
    EXPECT_EQ(workspace_of("F32MATMUL", one), product);
    EXPECT_EQ(workspace_of("F32MATMUL", make_problem(shape, padded)),
              (3 * 12 * 14 + 4) * 4 + (27 * 120 + 4) * 4 + product);
    const auto tiles = [&](size_t images) {
        return workspace_of("WINOGRAD",
                            make_problem({8, 10, 12, 16, 3, 3}, {1, 0, 1, false, 1, images}));
    };
    EXPECT_EQ(tiles(3) - tiles(1), 8 * (8 + 16) * 256);  // four tiles an image
    EXPECT_EQ(tiles(1),
              8 * 16 * 256 + 4 * (8 + 16) * 256 + 1024 + (product + 511) / 512 * 512 + 512);  // 864
}

TEST(ConvolutionChoice, TakesTheFirstThatFits) {
    const Kind& of = kind("float");
    for (const Shape& shape : {Shape{8, 9, 9, 8, 3, 3}, Shape{32, 9, 9, 8, 3, 3}}) {
        const auto problem = make_problem(shape);
        const auto handle = make_handle(ARMV7);
        const auto op = handle->create_operator<kern::ConvolutionForward>();
        op->param() = problem.param;
        const TensorLayout src(problem.src, of.a), filter(problem.filter, of.b);
        const TensorLayout dst(problem.dst(), of.c);
        std::vector<std::pair<size_t, const Algorithm*>> all;
        for (const Algorithm* algorithm : op->all_algorithms(src, filter, dst)) {
            op->force_algorithm(algorithm);
            all.emplace_back(op->workspace_in_bytes(src, filter, dst), algorithm);
        }
        for (const auto& item : all) {
            for (size_t limit : {item.first, item.first - std::min<size_t>(item.first, 1)}) {
                const auto first = std::find_if(all.begin(), all.end(), [&](const auto& other) {
                    return other.first <= limit;
                });
                EXPECT_EQ(op->heuristic_algorithm(src, filter, dst, limit), first->second);
            }
        }
        EXPECT_STREQ(op->heuristic_algorithm(src, filter, dst, 0)->name, "N");
    }
}

TEST(ConvolutionChoice, IsRememberedAndForced) {
    const Kind& of = kind("float");
    const auto handle = make_handle(ARMV7);
    Counted op(handle.get());
    const auto run = [&](const ConvolutionProblem& problem) {
        std::mt19937 random(4);
        ConvolutionOperands in(problem, of);
        in.src.fill_integers(random, -8, 8);
        in.filter.fill_integers(random, -8, 8);
        const Tensor dst(problem.dst(), of.c);
        op.param() = problem.param;
        const size_t bytes =
            op.workspace_in_bytes(in.src.layout(), in.filter.layout(), dst.layout());
        const GuardedBuffer workspace(bytes);
        op.exec(in.src.raw(), in.filter.raw(), dst.raw(), {workspace.data(), bytes});
        EXPECT_EQ(dst.bytes(), convolve(NAIVE, problem, of, in)->bytes());
    };
    const auto problem = make_problem({2, 9, 9, 8, 3, 3});
    run(problem);
    EXPECT_EQ(op.count(), 1U);
    run(problem);
    EXPECT_EQ(op.count(), 1U);
    run(make_problem({2, 9, 9, 8, 3, 3}, {1, 0, 1, false, 5}));  // one choice for all groups
    EXPECT_EQ(op.count(), 2U);
    run(problem);
    EXPECT_EQ(op.count(), 3U);
    const auto strided = make_problem({2, 9, 9, 8, 3, 3}, {2});
    op.force_algorithm(algorithm_named("F32STRD2", strided, of));
    run(strided);
    EXPECT_EQ(op.count(), 3U);
    const ThrowingChecks checks;
    EXPECT_THROW(run(problem), Refused);  // that algorithm has no other stride
}

}  // namespace
}  // namespace kern_test
