// The error that a call raises, as a text to compare.
#pragma once

#include <string>

#include "korvane/error.h"

namespace korvane {

/// "number|source|description", or "no error".
template <class Body>
std::string raised(Body&& body) {
    try {
        body();
    } catch (const Error& error) {
        return std::to_string(error.number()) + "|" + error.source() + "|" + error.description();
    }
    return "no error";
}

}  // namespace korvane
