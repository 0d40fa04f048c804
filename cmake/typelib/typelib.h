// Steps of making a type library with widl, which cannot write every default value.
#pragma once

#include <string>

namespace typelib {

struct Prepared {
    std::string idl;  ///< what widl compiles
    /// "INTERFACE uuid", then a line for each of its defaults in their order: the value, or KEEP where widl writes it.
    std::string defaults;
};

/// The dialect of widl: it finds no system interfaces to import.
Prepared prepare(const std::string& idl);

/// The type library with those defaults in it. Throws std::runtime_error on any surprise.
std::string patch(const std::string& library, const std::string& defaults);

}  // namespace typelib
