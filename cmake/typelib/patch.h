// The defaults of the member tables in a type library that widl wrote.
#pragma once

#include <string>

namespace typelib {

/// The type library with the defaults that widl cannot write. Throws std::runtime_error on any surprise.
std::string with_defaults(const std::string& library);

}  // namespace typelib
