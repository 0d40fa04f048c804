// The files of data/report, compiled into the library.
#pragma once

#include <string_view>
#include <vector>

namespace korvane {

struct ReportFile {
    std::string_view name;
    std::string_view bytes;
};

std::vector<ReportFile> report_files();

}  // namespace korvane
