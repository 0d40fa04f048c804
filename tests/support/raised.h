// The error that a call raises, itself or as a text to compare.
#pragma once

#include <optional>

#include "korvane/error.h"

namespace korvane {

template <class Call>
std::optional<Error> raised_error(Call&& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

/// Number 0 where there is none.
template <class Call>
Error error_of(Call&& call) {
    return raised_error(call).value_or(Error(0, "", ""));
}

/// "number|source|description", or "no error".
template <class Call>
std::string raised(Call&& call) {
    const auto error = raised_error(call);
    return error ? std::to_string(error->number()) + "|" + error->source() + "|" + error->description() : "no error";
}

}  // namespace korvane
