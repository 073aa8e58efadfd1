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
std::optional<CompNode::DeviceType> parse_type(const std::string& text, size_t& cursor) {
    for (uint32_t number = 0; number < NR_TYPES; ++number) {
        const std::string name = TYPE_NAMES[number];
        if (text.compare(0, name.size(), name) == 0) {
            cursor = name.size();
            return static_cast<CompNode::DeviceType>(number);
        }
    }
    return std::nullopt;
}

// A number as its lowest 32 bits, and whether it is more than that.
struct Number {
    int32_t value = 0;
    bool has_wrapped = false;
};

// The number at the cursor, which moves past its digits; 0 when there is none.
Number parse_number(const std::string& text, size_t& cursor) {
    uint32_t low = 0;
    bool has_wrapped = false;
    for (; cursor < text.size() && text[cursor] >= '0' && text[cursor] <= '9'; ++cursor) {
        const uint64_t next = uint64_t{low} * 10 + static_cast<uint32_t>(text[cursor] - '0');
        has_wrapped |= next > INT32_MAX;
        low = static_cast<uint32_t>(next);
    }
    return {static_cast<int32_t>(low), has_wrapped};
}

struct ParsedLocator {
    Locator locator;
    bool has_wrapped = false;
};

std::optional<ParsedLocator> parse_text(const std::string& text) {
    ParsedLocator result;
    Locator& locator = result.locator;
    if (text.size() < 3)
        return std::nullopt;
    if (text == DEFAULT_CPU_TEXT) {
        locator.type = CompNode::DeviceType::CPU;
        locator.device = Locator::DEVICE_CPU_DEFAULT;
        return result;
    }
    size_t cursor = 0;
    const auto type = parse_type(text, cursor);
    if (!type)
        return std::nullopt;
    locator.type = *type;
    if (cursor == text.size()) {
        // Only the unspecified type may be named without a device.
        if (locator.type != CompNode::DeviceType::XPU)
            return std::nullopt;
        return result;
    }
    const auto next_number = [&] {
        const Number number = parse_number(text, cursor);
        result.has_wrapped |= number.has_wrapped;
        return number.value;
    };
    if (text[cursor] == 'x')
        ++cursor;
    else
        locator.device = next_number();
    if (cursor == text.size())
        return result;
    if (text[cursor] != ':')
        return std::nullopt;
    const size_t digits = ++cursor;
    locator.stream = next_number();
    if (cursor == digits || cursor != text.size())
        return std::nullopt;
    return result;
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
    const auto parsed = parse_text(text);
    KERN_CHECK(parsed);
    return parsed->locator;
}

std::optional<Locator> Locator::try_parse(const std::string& text) {
    const auto parsed = parse_text(text);
    if (!parsed || parsed->has_wrapped)
        return std::nullopt;
    return parsed->locator;
}

std::string Locator::to_string() const {
    if (device == DEVICE_CPU_DEFAULT)
        return DEFAULT_CPU_TEXT;
    KERN_CHECK(device >= DEVICE_ANY);
    const std::string device_text = device == DEVICE_ANY ? "x" : std::to_string(device);
    return TYPE_NAMES[type_index(type)] + device_text + ":" + stream_text(stream);
}

bool Locator::can_name_cpu() const {
    constexpr int32_t UNSPECIFIED_DEVICE_LIMIT = INT32_MAX - 1023;
    if (device < DEVICE_ANY && device != DEVICE_CPU_DEFAULT)
        return false;
    return type == DeviceType::CPU ||
           (type == DeviceType::XPU && device < UNSPECIFIED_DEVICE_LIMIT);
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
