#pragma once

#include <string>
#include <string_view>

namespace brivasign {

// Returns the full path of `name`, a file or folder of the product folder, which the companion
// application keeps at "$HOME/Library/Application Support/Orvix/". Without HOME there is no product
// folder and the path is empty, which no file operation accepts.
std::string productFilePath(std::string_view name);

}  // namespace brivasign
