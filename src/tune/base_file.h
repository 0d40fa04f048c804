// Files that this room keeps in the base folder.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "korvane/platform.h"

namespace korvane {

/// A JSON file of the base folder; `//` and `/* */` comments are allowed.
struct BaseFile {
    BaseFile(const Platform& platform, const std::string& name, const char* routine);

    /// The object in the file; nothing where there is no file. Error -904 for anything else.
    std::optional<nlohmann::json> read() const;
    void save(const nlohmann::json& object) const;
    /// Error -904 naming the file.
    [[noreturn]] void refuse(const std::string& why) const;

    const Platform& platform;
    const char* const routine;
    std::string path;
};

}  // namespace korvane
