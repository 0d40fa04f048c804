// Numbers out of stored texts and instrument values, with an error that says where they stand.
#pragma once

#include <string_view>
#include <utility>

#include "korvane/error.h"
#include "platform/text.h"

namespace korvane {

/// What `convert()` gives; its error gets the text of `where()` added, which is not called otherwise.
template <class Where, class Convert>
auto located(Where&& where, Convert&& convert) {
    try {
        return std::forward<Convert>(convert)();
    } catch (const Error& error) {
        throw error.described(text_of(error.description(), " (", std::forward<Where>(where)(), ")"));
    }
}

/// `parse_double`, located.
template <class Where>
double located_number(std::string_view text, Where&& where) {
    return located(std::forward<Where>(where), [&] { return parse_double(text); });
}

}  // namespace korvane
