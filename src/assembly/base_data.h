// The files of a base folder, compiled into the library.
#pragma once

#include <string_view>
#include <vector>

namespace korvane {

struct BaseDataFile {
    std::string_view name;  ///< relative path with forward slashes
    std::string_view bytes;
};

std::vector<BaseDataFile> base_data_files();

}  // namespace korvane
