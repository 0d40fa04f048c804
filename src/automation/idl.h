// The interface definition in the dialects of its two readers.
#pragma once

#include <string>

namespace korvane::automation {

enum class IdlDialect {
    standard,
    /// For widl, which finds no system interfaces to import and cannot write every default: singles stand as their
    /// bits; doubles, texts and variants, to be put into the type library afterwards, as 0.
    widl
};

std::string idl_text(IdlDialect dialect);

}  // namespace korvane::automation
