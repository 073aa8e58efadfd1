// What a group has beside its rows: GROUP.vek.json, next to GROUP.vek. The Python package writes
// and reads the same.
#pragma once

#include <optional>
#include <string>

namespace features {

struct Constants {
    std::optional<float> scale, bias;  // similarity is 1 / (1 + exp(scale * d2 + bias))
    bool normalize = false;            // rows were brought to length 1, so queries are to be
};

std::string constants_path(const std::string& group_path);

// Nothing where there is no such file. BadFile for a scale that is not positive, or what is no
// number. Keys that are not known are left alone.
Constants read_constants(const std::string& group_path);

// The text of the file.
std::string constants_text(const Constants& constants);

// Takes the place of an old file, also where there is nothing to keep: an old group's constants
// must not go with a new one.
void write_constants(const std::string& group_path, const Constants& constants);

}  // namespace features
