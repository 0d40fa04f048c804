// Files that this room keeps in the base folder.
#pragma once

#include <optional>
#include <string>

#include "korvane/tune_run.h"
#include "platform/json_fields.h"

namespace korvane {

/// A JSON file of the base folder; `//` and `/* */` comments are allowed.
struct BaseFile {
    BaseFile(const Platform& platform, const std::string& name, const char* routine);

    /// The object in the file; nothing where there is no file. Error -904 for anything else.
    std::optional<json::Json> read() const;
    void save(const json::Json& object) const;
    /// Error -904 naming the file.
    [[noreturn]] void refuse(const std::string& why) const;

    const Platform& platform;
    const char* const routine;
    std::string path;
};

/// The object of such a file; what it lacks stays. Error -904 naming the file and the item that is not of its type, or
/// that nobody knows.
template <class Object>  // TuneRecipe, TuneLimits
void read_fields(const BaseFile& file, const json::Json& object, Object& into);

}  // namespace korvane
