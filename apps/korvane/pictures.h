// Files of pictures and pages.
#pragma once

#include <string>
#include <string_view>

#include "session.h"

namespace korvane::program {

/// Writes a file in one step. Error -904 naming it.
void save_file(Session& session, const std::string& path, std::string_view bytes);

}  // namespace korvane::program
