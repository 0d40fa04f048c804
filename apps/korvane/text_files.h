// Files that the user names.
#pragma once

#include <string>
#include <string_view>

#include "session.h"

namespace korvane::program {

/// Both raise error -904 naming the file. A save replaces the file in one step.
std::string read_text(Session& session, const std::string& path);
void save_text(Session& session, const std::string& path, std::string_view text);

}  // namespace korvane::program
