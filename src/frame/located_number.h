// Numbers out of stored texts, with an error that says where the text stands.
#pragma once

#include <string_view>
#include <utility>

#include "korvane/error.h"
#include "platform/text.h"

namespace korvane {

/// `parse_double`; its error gets the text of `where()` added, which is not called otherwise.
template <class Where>
double located_number(std::string_view text, Where&& where) {
    try {
        return parse_double(text);
    } catch (const Error& error) {
        throw error.described(text_of(error.description(), " (", std::forward<Where>(where)(), ")"));
    }
}

}  // namespace korvane
