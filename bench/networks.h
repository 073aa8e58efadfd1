// The convolutions of three networks, as (channels, size, filter) and how often each occurs: ResNet
// (He et al., "Deep residual learning for image recognition", 2016) with 50 layers and the strides
// in the 3 x 3 layers, MobileNetV2 (Sandler et al., "MobileNetV2: inverted residuals and linear
// bottlenecks", 2018), VGG (Simonyan and Zisserman, "Very deep convolutional networks for
// large-scale image recognition", 2015) with 16 layers.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vek_bench {

struct Layer {
    size_t times;
    size_t ic, oc, size;  // of the input, which is square
    size_t filter, stride, groups = 1;

    size_t pad() const { return (filter - 1) / 2; }
    size_t output() const { return (size + 2 * pad() - filter) / stride + 1; }
    double multiply_adds() const {
        return static_cast<double>(oc * (ic / groups) * filter * filter) *
               static_cast<double>(output() * output());
    }
    bool is_depthwise() const { return groups == ic; }
    std::string text() const {
        const auto number = [](size_t value) { return std::to_string(value); };
        return number(ic) + (is_depthwise() ? " apart" : " to " + number(oc)) + ", " +
               number(filter) + " x " + number(filter) +
               (stride > 1 ? " step " + number(stride) : "") + ", " + number(size) + " x " +
               number(size);
    }
};

struct Network {
    const char* name;
    std::vector<Layer> layers;
};

inline const std::vector<Network>& networks() {
    static const std::vector<Network> all = {
        {"ResNet-50",
         {{1, 3, 64, 224, 7, 2},    {1, 64, 64, 56, 1, 1},    {3, 64, 64, 56, 3, 1},
          {4, 64, 256, 56, 1, 1},   {2, 256, 64, 56, 1, 1},   {1, 256, 128, 56, 1, 1},
          {1, 128, 128, 56, 3, 2},  {4, 128, 512, 28, 1, 1},  {1, 256, 512, 56, 1, 2},
          {3, 512, 128, 28, 1, 1},  {3, 128, 128, 28, 3, 1},  {1, 512, 256, 28, 1, 1},
          {1, 256, 256, 28, 3, 2},  {6, 256, 1024, 14, 1, 1}, {1, 512, 1024, 28, 1, 2},
          {5, 1024, 256, 14, 1, 1}, {5, 256, 256, 14, 3, 1},  {1, 1024, 512, 14, 1, 1},
          {1, 512, 512, 14, 3, 2},  {3, 512, 2048, 7, 1, 1},  {1, 1024, 2048, 14, 1, 2},
          {2, 2048, 512, 7, 1, 1},  {2, 512, 512, 7, 3, 1}}},
        {"MobileNetV2",
         {{1, 3, 32, 224, 3, 2},        {1, 32, 32, 112, 3, 1, 32},   {1, 32, 16, 112, 1, 1},
          {1, 16, 96, 112, 1, 1},       {1, 96, 96, 112, 3, 2, 96},   {1, 96, 24, 56, 1, 1},
          {2, 24, 144, 56, 1, 1},       {1, 144, 144, 56, 3, 1, 144}, {1, 144, 24, 56, 1, 1},
          {1, 144, 144, 56, 3, 2, 144}, {1, 144, 32, 28, 1, 1},       {3, 32, 192, 28, 1, 1},
          {2, 192, 192, 28, 3, 1, 192}, {2, 192, 32, 28, 1, 1},       {1, 192, 192, 28, 3, 2, 192},
          {1, 192, 64, 14, 1, 1},       {4, 64, 384, 14, 1, 1},       {4, 384, 384, 14, 3, 1, 384},
          {3, 384, 64, 14, 1, 1},       {1, 384, 96, 14, 1, 1},       {3, 96, 576, 14, 1, 1},
          {2, 576, 576, 14, 3, 1, 576}, {2, 576, 96, 14, 1, 1},       {1, 576, 576, 14, 3, 2, 576},
          {1, 576, 160, 7, 1, 1},       {3, 160, 960, 7, 1, 1},       {3, 960, 960, 7, 3, 1, 960},
          {2, 960, 160, 7, 1, 1},       {1, 960, 320, 7, 1, 1},       {1, 320, 1280, 7, 1, 1}}},
        {"VGG-16",
         {{1, 3, 64, 224, 3, 1},
          {1, 64, 64, 224, 3, 1},
          {1, 64, 128, 112, 3, 1},
          {1, 128, 128, 112, 3, 1},
          {1, 128, 256, 56, 3, 1},
          {2, 256, 256, 56, 3, 1},
          {1, 256, 512, 28, 3, 1},
          {2, 512, 512, 28, 3, 1},
          {3, 512, 512, 14, 3, 1}}},
    };
    return all;
}

}  // namespace vek_bench
