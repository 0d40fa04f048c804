// Steps of making a type library with widl, which cannot write every default value.
#pragma once

#include <string>

namespace typelib {

struct Prepared {
    std::string idl;  ///< what widl compiles
    std::string
        defaults;  ///< a line for every default in the order of the file: its value, or KEEP where widl writes it
};

/// The dialect of widl: it finds no system interfaces to import.
Prepared prepare(const std::string& idl);

/// The type library with those defaults in it. Throws std::runtime_error on any surprise.
std::string patch(const std::string& library, const std::string& defaults);

}  // namespace typelib
