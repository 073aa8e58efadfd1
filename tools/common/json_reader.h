// Reads a small JSON file: one object, whose values are told apart as far as the programs need.
#pragma once

#include <map>
#include <string>

namespace tools {

struct JsonValue {
    enum class Kind { NUMBER, BOOL, TEXT, OTHER };  // OTHER: null, an array or an object

    Kind kind = Kind::OTHER;
    double number = 0;
    bool flag = false;
    std::string text;
    size_t offset = 0;  // in the file
};

using JsonObject = std::map<std::string, JsonValue>;

// BadFile, with the byte, for what is not one JSON object of at most 1 MiB. Of equal keys the last
// counts.
JsonObject read_json_object(const std::string& path);

}  // namespace tools
