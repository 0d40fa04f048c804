// The types in which members are declared on the automation interface, and their names: those of types, member
// functions and enumerators as the compiler writes them (GCC and clang alike), so that no list repeats them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace korvane::automation {

namespace detail {

// The texts end in "T = korvane::PeakInfo]" and "values = {korvane::PeakCalcType::Area, (korvane::PeakCalcType)7}]".
// A result that is no template keeps notes on it out of them.
template <class T>
constexpr const char* text_of_type() {
    return __PRETTY_FUNCTION__;
}
template <auto... values>
constexpr const char* text_of_values() {
    return __PRETTY_FUNCTION__;
}

constexpr std::string_view last_name(std::string_view text) {
    text = text.substr(0, text.find_last_not_of("]}>") + 1);
    return text.substr(text.rfind("::") + 2);
}

}  // namespace detail

/// "PeakInfo" of `korvane::PeakInfo`.
template <class T>
inline constexpr std::string_view type_name = detail::last_name(detail::text_of_type<T>());

/// "QuadType" of `&korvane::TuneGlobals::QuadType`.
template <auto value>
inline constexpr std::string_view value_name = detail::last_name(detail::text_of_values<value>());

enum class TypeKind : std::uint8_t {
    none,
    variant,
    boolean,
    long_integer,  ///< 32 bits
    single,
    real,
    text,
    enumeration,
    record,
    object,
    real_array,
    text_array
};

/// A kind in the tables for other languages, in the interface definition, in a signature, and as the system numbers it
/// (VARTYPE).
struct KindDescription {
    std::string_view sort;
    std::string_view idl;        ///< empty: the type's own name
    std::string_view signature;  ///< empty: the type's own name
    std::uint16_t variant_type;
};

/// In the order of `TypeKind`.
inline constexpr std::array<KindDescription, 12> kind_descriptions{{
    {"none", "void", "", 0},
    {"variant", "VARIANT", "Variant", 12},
    {"boolean", "VARIANT_BOOL", "Boolean", 11},
    {"long", "long", "Long", 3},
    {"single", "float", "Single", 4},
    {"double", "double", "Double", 5},
    {"text", "BSTR", "String", 8},
    {"enumeration", "", "", 3},
    {"record", "", "", 36},
    {"object", "", "", 9},
    {"doubles", "SAFEARRAY(double)", "Double()", 0x2005},
    {"texts", "SAFEARRAY(BSTR)", "String()", 0x2008},
}};

struct DeclaredType {
    TypeKind kind = TypeKind::none;
    std::string_view name = {};  ///< of the enumeration, the record or the object's class

    constexpr const KindDescription& description() const { return kind_descriptions[static_cast<std::size_t>(kind)]; }
    /// "double", "PeakInfo", "_PeakList*".
    std::string idl_text() const {
        if (kind == TypeKind::object) return std::string("_").append(name).append("*");
        return std::string(description().idl.empty() ? name : description().idl);
    }
    /// "Double", "PeakInfo", "PeakList".
    std::string signature_text() const {
        return std::string(description().signature.empty() ? name : description().signature);
    }
};

/// How a parameter is passed.
enum class Direction : std::uint8_t {
    by_value,
    by_reference,
    result  ///< by reference; what the caller's variable holds before the call does not matter
};

/// A parameter's default value; nothing where it has none.
using DefaultValue = std::variant<std::monostate, bool, std::int32_t, double, const char*>;

struct Parameter {
    std::string_view name = {};
    Direction direction = Direction::by_value;
    bool optional = false;
    bool changes = false;  ///< the native member writes to it
    DefaultValue default_value = {};
    DeclaredType type = {};

    constexpr bool is_by_reference() const { return direction != Direction::by_value; }
    constexpr bool has_default() const { return !std::holds_alternative<std::monostate>(default_value); }

    /// The same parameter declared as of this kind, whatever its native type suggests.
    constexpr Parameter declared(TypeKind kind) const {
        Parameter copy = *this;
        copy.type = {kind};
        return copy;
    }
    /// The same, optional without a default: left out, the routine decides.
    constexpr Parameter may_be_missing() const {
        Parameter copy = *this;
        copy.optional = true;
        return copy;
    }
};

// One a direction: `value("mz")`, `reference("dMassWindow", 0.2)`, `result("Means")`. What has a default is optional.
constexpr Parameter value(std::string_view name, DefaultValue default_value = {}) {
    return {.name = name, .optional = default_value.index() > 0, .default_value = default_value};
}
constexpr Parameter reference(std::string_view name, DefaultValue default_value = {}) {
    return {.name = name,
            .direction = Direction::by_reference,
            .optional = default_value.index() > 0,
            .default_value = default_value};
}
constexpr Parameter result(std::string_view name) {
    return {.name = name, .direction = Direction::result};
}

}  // namespace korvane::automation
