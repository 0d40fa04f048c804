#include <bit>
#include <cstdint>
#include <cstdio>
#include <regex>
#include <sstream>

#include "typelib.h"

namespace typelib {

namespace {

// Base interfaces with as many methods as the real ones, so that vtable offsets come out right.
constexpr const char* prelude = R"(typedef long LONG;
typedef LONG HRESULT;
typedef [unique] wchar_t* BSTR;
typedef short VARIANT_BOOL;
typedef struct tagVARIANT { long x; } VARIANT;
[object, uuid(00000000-0000-0000-C000-000000000046)] interface IUnknown { HRESULT q(); LONG a(); LONG r(); }
[object, uuid(00020400-0000-0000-C000-000000000046)] interface IDispatch : IUnknown {
    HRESULT c(); HRESULT t(); HRESULT n(); HRESULT i();
}
)";

std::string exact_text(const std::string& number) {
    char text[64];
    std::snprintf(text, sizeof text, "%a", std::stod(number));
    return text;
}

/// The default to write in the place of one that the compiler cannot: singles as their bits, the rest as 0.
std::string replacement(const std::string& value, const std::string& type) {
    if (type == "float") return std::to_string(std::bit_cast<std::int32_t>(std::stof(value)));
    return type == "double" || type == "BSTR" || type == "VARIANT" ? "0" : value;
}

std::string patch_line(const std::string& value, const std::string& type) {
    if (type == "double") return "R8 " + exact_text(value) + "\n";
    if (type == "BSTR") return "BSTR " + value.substr(1, value.size() - 2) + "\n";
    if (type == "VARIANT") return "BOOL " + value + "\n";
    return "KEEP\n";
}

}  // namespace

Prepared prepare(const std::string& idl) {
    static const std::regex default_line(R"re(^(.*defaultvalue\()("[^"]*"|[^)]*)(\)\] (\w+)\*? .*)$)re");
    static const std::regex interface_line(R"re(^ *\[object, uuid\(([^)]*)\).*$)re");
    Prepared prepared;
    std::istringstream in(idl);
    bool prelude_written = false;
    for (std::string line; std::getline(in, line);) {
        std::smatch parts;
        if (line.starts_with("import ")) {
            if (!prelude_written) prepared.idl += prelude;
            prelude_written = true;
        } else if (std::regex_match(line, parts, default_line)) {
            prepared.idl += parts.str(1) + replacement(parts.str(2), parts.str(4)) + parts.str(3) + "\n";
            prepared.defaults += patch_line(parts.str(2), parts.str(4));
        } else {
            if (std::regex_match(line, parts, interface_line)) prepared.defaults += "INTERFACE " + parts.str(1) + "\n";
            prepared.idl += line + "\n";
        }
    }
    return prepared;
}

}  // namespace typelib
