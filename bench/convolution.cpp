// How fast the convolutions of networks are: Float32, one thread, with all that a call does. Shares
// are of the machine's peak of multiply-adds; what moves more bytes than it multiplies has its
// memory for a bound. Beside it, in turns with it, oneDNN if it is there: with plain layouts, with
// its own blocked ones, and what it takes to bring the filter into its order, which the library
// does in each call.
//     OMP_NUM_THREADS=1 bench_convolution [BATCH] [NETWORK] [REPEATS]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/bench_util.h"
#include "bench/convolution_peer.h"
#include "bench/networks.h"
#include "kernels/operators/convolution_forward.h"
#include "tools/common/machine_limits.h"

namespace {

using namespace vek_bench;
using kern::DType;
using kern::TensorLayout;

// The library's own convolution of a layer.
class Own {
public:
    Own(const Layer& layer, size_t batch, const ConvolutionData& data)
        : m_handle(kern::make_handle(
              {kern::Platform::CPU, std::make_shared<kern::InlineDispatcher>()}, 0)),
          m_op(m_handle->create_operator<kern::ConvolutionForward>()) {
        auto& param = m_op->param();
        param.pad_h = param.pad_w = static_cast<uint32_t>(layer.pad());
        param.stride_h = param.stride_w = static_cast<uint32_t>(layer.stride);
        const DType float32 = DType::Float32();
        TensorLayout filter({layer.oc, layer.ic, layer.filter, layer.filter}, float32);
        if (layer.groups > 1) {
            param.sparse = kern::ConvolutionSparse::GROUP;
            filter = TensorLayout({layer.groups, layer.oc / layer.groups, layer.ic / layer.groups,
                                   layer.filter, layer.filter},
                                  float32);
        }
        m_src = {const_cast<float*>(data.src.data()),
                 TensorLayout({batch, layer.ic, layer.size, layer.size}, float32)};
        m_filter = {const_cast<float*>(data.filter.data()), filter};
        m_result.resize(batch * layer.oc * layer.output() * layer.output());
        m_dst = {m_result.data(),
                 TensorLayout({batch, layer.oc, layer.output(), layer.output()}, float32)};
        m_workspace.resize(m_op->workspace_in_bytes(m_src.layout, m_filter.layout, m_dst.layout));
    }
    void run() { m_op->exec(m_src, m_filter, m_dst, {m_workspace.data(), m_workspace.size()}); }
    const char* algorithm() {
        return m_op->heuristic_algorithm(m_src.layout, m_filter.layout, m_dst.layout, SIZE_MAX)
            ->name;
    }
    const std::vector<float>& result() const { return m_result; }

private:
    std::unique_ptr<kern::KernelHandle> m_handle;
    std::unique_ptr<kern::ConvolutionForward> m_op;
    kern::RawTensor m_src, m_filter, m_dst;
    std::vector<float> m_result;
    std::vector<uint8_t> m_workspace;
};

// The shortest time of several.
struct Shortest {
    double seconds = 1e30;
    template <typename Function>
    void measure(Function function) {
        const double start = machine_limits::seconds_now();
        function();
        seconds = std::min(seconds, machine_limits::seconds_now() - start);
    }
};

// Of a network: each layer as often as it occurs.
struct Sums {
    double bound = 0, own = 0, plain = 0, blocked = 0, reorder = 0;
};

double greatest_difference(const std::vector<float>& a, const std::vector<float>& b) {
    double greatest = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        greatest =
            std::max(greatest, std::abs(static_cast<double>(a[i]) - static_cast<double>(b[i])));
    return greatest;
}

void measure(const Layer& layer, size_t batch, size_t repeats, double peak, Sums& sums) {
    const ConvolutionData data(layer, batch);
    Own own(layer, batch, data);
    ConvolutionPeer peer(layer, batch, data);
    Shortest of_own, plain, blocked, reorder;
    for (size_t i = 0; i < repeats; ++i) {
        of_own.measure([&] { own.run(); });
        plain.measure([&] { peer.run_plain(); });
        blocked.measure([&] { peer.run_blocked(); });
        reorder.measure([&] { peer.reorder_filter(); });
    }
    const double operations = 2 * layer.multiply_adds() * static_cast<double>(batch);
    const double bound = operations / peak;
    std::printf("| %s | %s | %.3f | %.2f |", layer.text().c_str(), own.algorithm(),
                of_own.seconds * 1e3, bound / of_own.seconds);
    if (ConvolutionPeer::EXISTS)
        std::printf(" %.2f | %.2f | %.3f | %.2f |", bound / plain.seconds, bound / blocked.seconds,
                    reorder.seconds * 1e3, (plain.seconds + reorder.seconds) / of_own.seconds);
    std::printf("\n");
    std::fflush(stdout);
    if (ConvolutionPeer::EXISTS && greatest_difference(own.result(), peer.plain_result()) > 1e-2) {
        std::fprintf(stderr, "the results differ\n");
        std::exit(1);
    }
    const auto times = static_cast<double>(layer.times);
    sums.bound += times * bound;
    sums.own += times * of_own.seconds;
    sums.plain += times * plain.seconds;
    sums.blocked += times * blocked.seconds;
    sums.reorder += times * reorder.seconds;
}

void measure(const Network& network, size_t batch, size_t repeats) {
    const double peak = machine_limits::float_peak();
    std::printf("\n%s, batch %zu; peak %.1f GFLOP/s\n\n", network.name, batch, peak * 1e-9);
    std::printf("| layer | algorithm | ms | share |%s\n|---|---|---|---|%s\n",
                ConvolutionPeer::EXISTS ? " plain | blocked | reorder, ms | times plain |" : "",
                ConvolutionPeer::EXISTS ? "---|---|---|---|" : "");
    Sums sums;
    for (const Layer& layer : network.layers)
        measure(layer, batch, repeats, peak, sums);
    std::printf("| all, as often as they occur | | %.3f | %.2f |", sums.own * 1e3,
                sums.bound / sums.own);
    if (ConvolutionPeer::EXISTS)
        std::printf(" %.2f | %.2f | %.3f | %.2f |", sums.bound / sums.plain,
                    sums.bound / sums.blocked, sums.reorder * 1e3,
                    (sums.plain + sums.reorder) / sums.own);
    std::printf("\n");
}

}  // namespace

int main(int nr_words, char** words) {
    const char* threads = std::getenv("OMP_NUM_THREADS");
    if (ConvolutionPeer::EXISTS && (threads == nullptr || std::strcmp(threads, "1") != 0)) {
        std::fprintf(stderr, "OMP_NUM_THREADS=1 is needed for a comparison of one thread\n");
        return 2;
    }
    const size_t batch = nr_words > 1 ? std::strtoul(words[1], nullptr, 10) : 1;
    const size_t repeats = nr_words > 3 ? std::strtoul(words[3], nullptr, 10) : 20;
    for (const Network& network : networks()) {
        if (nr_words <= 2 || std::strcmp(words[2], network.name) == 0)
            measure(network, batch, repeats);
    }
    return 0;
}
