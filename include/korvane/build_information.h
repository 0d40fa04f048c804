// What the library was made of.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "korvane/export.h"

namespace korvane {

struct BuildInformation {
    std::string version;                                         ///< of the library, "0.1.0"
    std::string commit;                                          ///< abbreviated; empty where it was not known
    std::vector<std::pair<std::string, std::string>> libraries;  ///< name and version, of those compiled against
};

KORVANE_API BuildInformation build_information();

}  // namespace korvane
