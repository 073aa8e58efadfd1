// The program that makes pictures of graphs in the dot language, where it is installed.
#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace vekgraph {

// Makes a picture of the format ("svg" or "png") from what `write_dot` writes. Throws BadUse where
// the program cannot be started or ends with an error.
void draw_picture(const std::string& format, const std::string& path,
                  const std::function<void(std::ostream&)>& write_dot);

}  // namespace vekgraph
