// The process's environment.
#pragma once

#include <string>

namespace korvane {

/// The variable's value as UTF-8; empty where it is not set.
std::string environment_text(const std::string& name);

}  // namespace korvane
