// Texts of locators, and how a logical locator finds its worker.
#include <iterator>
#include <mutex>
#include <unordered_map>

#include "graph/node/comp_node.h"
#include "kernels/check.h"

namespace orb {
namespace {

using Locator = CompNode::Locator;

const char DEFAULT_CPU_TEXT[] = "cpu:default";

// In the order of the types' numbers; no name is the start of another.
const char* const TYPE_NAMES[] = {"xpu", "gpu", "cpu", "fpga", "opencl", "hexagon"};
constexpr uint32_t NR_TYPES = std::size(TYPE_NAMES);

// The type that the text starts with.
CompNode::DeviceType parse_type(const std::string& text, size_t& cursor) {
    for (uint32_t number = 0; number < NR_TYPES; ++number) {
        const std::string name = TYPE_NAMES[number];
        if (text.compare(0, name.size(), name) == 0) {
            cursor = name.size();
            return static_cast<CompNode::DeviceType>(number);
        }
    }
    KERN_FAIL();
}

// The number at the cursor, which moves past its digits; 0 when there is none. Numbers wrap.
int32_t parse_number(const std::string& text, size_t& cursor) {
    uint32_t number = 0;
    for (; cursor < text.size() && text[cursor] >= '0' && text[cursor] <= '9'; ++cursor)
        number = number * 10 + static_cast<uint32_t>(text[cursor] - '0');
    return static_cast<int32_t>(number);
}

std::string stream_text(int32_t stream) {
    switch (stream) {
        case Locator::STREAM_COPY:
            return "COPY";
        case Locator::STREAM_REMOTE_SEND:
            return "REMOTE_SEND";
        case Locator::STREAM_LOOP_SWAP:
            return "LOOP_SWAP";
        default:
            return std::to_string(stream);
    }
}

// Physical devices that stand for logical ones, by type; null while there are none. Never
// destroyed: locators are resolved in static destructors too.
using DeviceMap = std::unordered_map<int32_t, int32_t>;
std::mutex device_maps_mutex;
DeviceMap* device_maps = nullptr;

uint32_t type_index(CompNode::DeviceType type) {
    const auto index = static_cast<uint32_t>(type);
    KERN_CHECK(index < NR_TYPES);
    return index;
}

}  // namespace

Locator Locator::parse(const std::string& text) {
    KERN_CHECK(text.size() >= 3);
    Locator result;
    if (text == DEFAULT_CPU_TEXT) {
        result.type = DeviceType::CPU;
        result.device = DEVICE_CPU_DEFAULT;
        return result;
    }
    size_t cursor = 0;
    result.type = parse_type(text, cursor);
    if (cursor == text.size()) {
        // Only the unspecified type may be named without a device.
        KERN_CHECK(result.type == DeviceType::XPU);
        return result;
    }
    if (text[cursor] == 'x')
        ++cursor;
    else
        result.device = parse_number(text, cursor);
    if (cursor == text.size())
        return result;
    KERN_CHECK(text[cursor] == ':');
    const size_t digits = ++cursor;
    result.stream = parse_number(text, cursor);
    KERN_CHECK(cursor > digits && cursor == text.size());
    return result;
}

std::string Locator::to_string() const {
    if (device == DEVICE_CPU_DEFAULT)
        return DEFAULT_CPU_TEXT;
    KERN_CHECK(device >= DEVICE_ANY);
    const std::string device_text = device == DEVICE_ANY ? "x" : std::to_string(device);
    return TYPE_NAMES[type_index(type)] + device_text + ":" + stream_text(stream);
}

Locator Locator::to_physical() const {
    const std::lock_guard<std::mutex> lock(device_maps_mutex);
    KERN_CHECK(stream >= 0);
    Locator result = *this;
    if (result.type == DeviceType::XPU)
        result.type = DeviceType::CPU;  // the only type that is always there
    const uint32_t index = type_index(result.type);
    if (device_maps) {
        const auto mapped = device_maps[index].find(result.device);
        if (mapped != device_maps[index].end())
            result.device = mapped->second;
    }
    if (result.device == DEVICE_ANY)
        result.device = 0;
    return result;
}

void Locator::map_device(DeviceType type, int32_t logical, int32_t physical) {
    const std::lock_guard<std::mutex> lock(device_maps_mutex);
    if (!device_maps)
        device_maps = new DeviceMap[NR_TYPES];
    device_maps[type_index(type)][logical] = physical;
}

}  // namespace orb
