// Files of pictures and pages.
#pragma once

#include <string>
#include <string_view>

#include "korvane/tune_record.h"
#include "session.h"

namespace korvane::program {

/// Writes a file in one step. Error -904 naming it.
void save_file(Session& session, const std::string& path, std::string_view bytes);

/// The page of a record.
std::string report_page(Session& session, const TuneRecord& record);
/// Where it is written when nobody says: beside the tune logs.
std::string report_name(Session& session, const TuneRecord& record);

}  // namespace korvane::program
