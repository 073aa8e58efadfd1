#include "features/constants.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <filesystem>

#include "common/failure.h"
#include "common/json_reader.h"
#include "common/output_file.h"

namespace features {
namespace {

using tools::JsonValue;

// The shortest that gives the same float.
std::string number_text(float number) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof(text), number).ptr};
}

}  // namespace

std::string constants_path(const std::string& group_path) {
    return group_path + ".json";
}

Constants read_constants(const std::string& group_path) {
    const std::string path = constants_path(group_path);
    if (!std::filesystem::exists(path))
        return {};
    Constants constants;
    for (const auto& [key, value] : tools::read_json_object(path)) {
        const std::string place = path + ": byte " + std::to_string(value.offset) + ": " + key;
        const auto fail = [&](const char* text) { throw tools::BadFile(place + text); };
        if (key == "normalize") {
            if (value.kind != JsonValue::Kind::BOOL)
                fail(" is neither true nor false");
            constants.normalize = value.flag;
        } else if (key == "scale" || key == "bias") {
            const bool is_null = value.kind == JsonValue::Kind::OTHER;
            if (!is_null && (value.kind != JsonValue::Kind::NUMBER ||
                             !(std::fabs(value.number) <= static_cast<double>(FLT_MAX))))
                fail(" is no number that a float holds");
            if (!is_null && key == "scale" && !(static_cast<float>(value.number) > 0))
                fail(" is not above 0");
            if (!is_null)
                (key == "scale" ? constants.scale : constants.bias) =
                    static_cast<float>(value.number);
        }
    }
    return constants;
}

std::string constants_text(const Constants& constants) {
    std::string text = "{\n";
    if (constants.scale)
        text += "  \"scale\": " + number_text(*constants.scale) + ",\n";
    if (constants.bias)
        text += "  \"bias\": " + number_text(*constants.bias) + ",\n";
    return text + "  \"normalize\": " + (constants.normalize ? "true" : "false") + "\n}\n";
}

void write_constants(const std::string& group_path, const Constants& constants) {
    tools::OutputFile file(constants_path(group_path));
    file.write(constants_text(constants));
    file.commit();
}

}  // namespace features
