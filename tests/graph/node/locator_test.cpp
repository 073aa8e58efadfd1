#include <gtest/gtest.h>

#include "graph/node/comp_node.h"

namespace orb {
namespace {

using Locator = CompNode::Locator;
using Type = CompNode::DeviceType;

TEST(Locator, ReadsTexts) {
    const struct {
        const char* text;
        Locator expected;
    } cases[] = {
        {"cpu:default", {Type::CPU, Locator::DEVICE_CPU_DEFAULT, 0}},
        {"xpu", {Type::XPU, -1, 0}},
        {"xpux", {Type::XPU, -1, 0}},
        {"cpux", {Type::CPU, -1, 0}},
        {"cpux:7", {Type::CPU, -1, 7}},
        {"cpu:3", {Type::CPU, 0, 3}},
        {"cpu2:1", {Type::CPU, 2, 1}},
        {"gpu15", {Type::GPU, 15, 0}},
        {"fpga1:02", {Type::FPGA, 1, 2}},
        {"opencl0", {Type::OPENCL, 0, 0}},
        {"hexagon0:0", {Type::HEXAGON, 0, 0}},
        {"cpu4294967298:1", {Type::CPU, 2, 1}},  // digits wrap
    };
    for (const auto& c : cases)
        EXPECT_TRUE(Locator::parse(c.text) == c.expected) << c.text;
}

TEST(LocatorDeathTest, MalformedTextsStop) {
    for (const char* text : {"",       "cp",       "cpu",     "gpu",          "hexagon",
                             "opencl", "cpu0:",    "cpu0:1a", "cpu0:x",       "cpu1 ",
                             "cpu-1",  "cpux1",    "xpu:",    "tpu0",         "fpg",
                             "fpg0",   "hexagom0", "Cpu0",    "cpu:default0", "cpu:defaul"})
        EXPECT_DEATH(Locator::parse(text), "") << text;
}

TEST(Locator, Prints) {
    const struct {
        Locator locator;
        const char* expected;
    } cases[] = {
        {{Type::CPU, -1024, 0}, "cpu:default"},   {{Type::CPU, -1024, 5}, "cpu:default"},
        {{Type::CPU, 1, -2}, "cpu1:REMOTE_SEND"}, {{Type::XPU, -1, -1}, "xpux:COPY"},
        {{Type::XPU, -1, 0}, "xpux:0"},           {{Type::GPU, 3, -3}, "gpu3:LOOP_SWAP"},
        {{Type::HEXAGON, 0, -4}, "hexagon0:-4"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.locator.to_string(), c.expected);
    EXPECT_DEATH((Locator{Type::CPU, -2, 0}.to_string()), "");
    EXPECT_DEATH((Locator{static_cast<Type>(6), 0, 0}.to_string()), "");
}

TEST(Locator, ResolvesToPhysical) {
    EXPECT_TRUE((Locator{Type::XPU, -1, 4}.to_physical() == Locator{Type::CPU, 0, 4}));
    EXPECT_TRUE((Locator{Type::CPU, -1024, 0}.to_physical() == Locator{Type::CPU, -1024, 0}));
    EXPECT_TRUE((Locator{Type::GPU, 9, 1}.to_physical() == Locator{Type::GPU, 9, 1}));
    Locator::map_device(Type::GPU, 9, 2);
    Locator::map_device(Type::GPU, 8, -1);
    EXPECT_TRUE((Locator{Type::GPU, 9, 1}.to_physical() == Locator{Type::GPU, 2, 1}));
    EXPECT_TRUE((Locator{Type::GPU, 8, 1}.to_physical() == Locator{Type::GPU, 0, 1}));
    EXPECT_TRUE((Locator{Type::FPGA, 9, 1}.to_physical() == Locator{Type::FPGA, 9, 1}));
    EXPECT_DEATH((Locator{Type::CPU, 0, -1}.to_physical()), "");
    EXPECT_DEATH((Locator{static_cast<Type>(6), 0, 0}.to_physical()), "");
}

}  // namespace
}  // namespace orb
