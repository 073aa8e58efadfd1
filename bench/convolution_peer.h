// oneDNN's convolution of a layer, where Debian's package of it is installed.
#pragma once

#include <cstring>
#include <vector>

#include "bench/bench_util.h"
#include "bench/networks.h"

#if defined(VEKFIND_HAS_DNNL)
#include <dnnl.hpp>
#endif

namespace vek_bench {

struct ConvolutionData {
    std::vector<float> src, filter;
    ConvolutionData(const Layer& layer, size_t batch)
        : src(random_features<float>(batch * layer.ic, layer.size * layer.size, 1)),
          filter(random_features<float>(layer.oc * layer.ic / layer.groups,
                                        layer.filter * layer.filter, 2)) {}
};

#if defined(VEKFIND_HAS_DNNL)

class ConvolutionPeer {
public:
    static constexpr bool EXISTS = true;

    ConvolutionPeer(const Layer& layer, size_t batch, const ConvolutionData& data)
        : m_plain(*this, layer, batch, data, false), m_blocked(*this, layer, batch, data, true) {}

    void run_plain() { m_plain.run(m_stream); }
    void run_blocked() { m_blocked.run(m_stream); }
    // From the plain order into that of the plain form.
    void reorder_filter() { m_plain.reorder(m_stream); }
    std::vector<float> plain_result() const {
        const auto* first = static_cast<const float*>(m_plain.dst.get_data_handle());
        return {first, first + m_plain.dst.get_desc().get_size() / sizeof(float)};
    }

private:
    using Tag = dnnl::memory::format_tag;

    // With the caller's layout of the images, or with whatever the peer likes best.
    struct Form {
        dnnl::memory user_filter, src, filter, dst;
        dnnl::convolution_forward primitive;

        Form(ConvolutionPeer& peer, const Layer& layer, size_t batch, const ConvolutionData& data,
             bool is_blocked) {
            const auto dim = [](size_t value) { return static_cast<dnnl::memory::dim>(value); };
            const auto image = [&](size_t channels, size_t size, Tag tag) {
                return dnnl::memory::desc({dim(batch), dim(channels), dim(size), dim(size)},
                                          dnnl::memory::data_type::f32, tag);
            };
            const auto f = dim(layer.filter), groups = dim(layer.groups);
            const dnnl::memory::dims dims =
                layer.groups > 1 ? dnnl::memory::dims{groups, dim(layer.oc) / groups,
                                                      dim(layer.ic) / groups, f, f}
                                 : dnnl::memory::dims{dim(layer.oc), dim(layer.ic), f, f};
            const auto filter_desc = [&](Tag tag) {
                return dnnl::memory::desc(dims, dnnl::memory::data_type::f32, tag);
            };
            const Tag images = is_blocked ? Tag::any : Tag::nchw;
            const dnnl::memory::dims strides(2, dim(layer.stride)), pads(2, dim(layer.pad()));
            const dnnl::convolution_forward::desc desc(
                dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct,
                image(layer.ic, layer.size, images), filter_desc(Tag::any),
                image(layer.oc, layer.output(), images), strides, pads, pads);
            const dnnl::convolution_forward::primitive_desc chosen(desc, peer.m_engine);
            primitive = dnnl::convolution_forward(chosen);
            user_filter = dnnl::memory(filter_desc(layer.groups > 1 ? Tag::goihw : Tag::oihw),
                                       peer.m_engine, const_cast<float*>(data.filter.data()));
            dnnl::memory user_src(image(layer.ic, layer.size, Tag::nchw), peer.m_engine,
                                  const_cast<float*>(data.src.data()));
            src = dnnl::memory(chosen.src_desc(), peer.m_engine);
            filter = dnnl::memory(chosen.weights_desc(), peer.m_engine);
            dst = dnnl::memory(chosen.dst_desc(), peer.m_engine);
            dnnl::reorder(user_src, src).execute(peer.m_stream, user_src, src);
            reorder(peer.m_stream);
        }
        void reorder(dnnl::stream& stream) {
            dnnl::reorder(user_filter, filter).execute(stream, user_filter, filter);
            stream.wait();
        }
        void run(dnnl::stream& stream) {
            primitive.execute(
                stream, {{DNNL_ARG_SRC, src}, {DNNL_ARG_WEIGHTS, filter}, {DNNL_ARG_DST, dst}});
            stream.wait();
        }
    };

    dnnl::engine m_engine{dnnl::engine::kind::cpu, 0};
    dnnl::stream m_stream{m_engine};
    Form m_plain, m_blocked;
};

#else

class ConvolutionPeer {
public:
    static constexpr bool EXISTS = false;

    ConvolutionPeer(const Layer&, size_t, const ConvolutionData&) {}
    void run_plain() {}
    void run_blocked() {}
    void reorder_filter() {}
    std::vector<float> plain_result() const { return {}; }
};

#endif

}  // namespace vek_bench
