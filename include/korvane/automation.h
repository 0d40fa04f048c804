// The six classes as automation objects: created by ProgID, called by name or number with arguments by position, by
// name, omitted, and by reference. The same tables serve the Windows server, so that both faces agree.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "korvane/automation_value.h"
#include "korvane/platform.h"

namespace korvane::automation {

/// The arguments of a call. A parameter that is passed by reference and changed leaves its new value here.
struct Arguments {
    std::vector<Value> positional;  ///< `Missing` leaves one out
    std::vector<std::pair<std::string, Value>> named;
};

/// How a member is used. `call` runs a method or reads a property.
enum class Access { call, get, put };

/// An object whose members are found when they are called.
class KORVANE_API LateBound {
public:
    virtual ~LateBound() = default;

    /// "TuneGlobals", "PeakList", ...
    virtual std::string class_name() const = 0;
    /// Number of a member, whatever its case. Error 438 naming an unknown one.
    virtual std::int32_t dispid_of(std::string_view member) const = 0;
    /// Calls a member. Raises what the member raises, and before it: 438 unknown number or a use that the member does
    /// not have, 448 unknown named argument, 449 a required argument left out, 450 too many, 13, 6 and 94 arguments
    /// that do not convert, each naming member or parameter. Where the member raises, arguments are what it left.
    virtual Value invoke(std::int32_t dispid, Arguments& arguments, Access access) = 0;

    Value invoke(std::string_view member, Arguments& arguments, Access access = Access::call) {
        return invoke(dispid_of(member), arguments, access);
    }
    Value call(std::string_view member, std::vector<Value> positional = {}) {
        Arguments arguments{std::move(positional), {}};
        return invoke(member, arguments, Access::call);
    }
    Value get(std::string_view property) {
        Arguments none;
        return invoke(property, none, Access::get);
    }
    void put(std::string_view property, Value value) {
        Arguments arguments{{std::move(value)}, {}};
        invoke(property, arguments, Access::put);
    }
};

/// A new object of a class such as "Korvane.TuneGlobals", on `process_platform` or a given one. Error 429
/// naming an unknown class; whatever the class raises at its creation.
KORVANE_API Object create_object(std::string_view prog_id);
KORVANE_API Object create_object(std::string_view prog_id, const Platform& platform);

// Where the system has automation objects (Windows), instrument layers and tracers may be such objects. Elsewhere these
// three are what `korvane/platform.h` has.

/// The process's own platform, built once: KORVANE_INSTRUMENT may name an automation object by its ProgID, and the
/// tracer is the one that the system has registered. Objects that are created without a platform stand on it.
KORVANE_API const Platform& process_platform();
/// A platform with the layer of a shared library, or of the automation object with this ProgID. Errors as
/// `korvane::make_outside_platform`; a ProgID that cannot be had is error 429 naming it, at the layer's first use.
KORVANE_API Platform make_outside_platform(const std::string& instrument);
/// The platform with the system's registered tracer; its own where none is registered.
KORVANE_API Platform with_system_tracer(Platform platform);

/// A member as the automation interface shows it.
struct MemberSummary {
    std::string class_name;
    std::string name;
    std::int32_t dispid = 0;
    std::string signature;  ///< "Function GetMetaValue(SetpointExternalName As String) As Double"
    std::string help;
};
/// The members of the six classes and of the objects that they return, class by class in the order of their tables.
KORVANE_API std::vector<MemberSummary> member_summaries();

/// The interface in the interface definition language; the type library is made of it.
KORVANE_API std::string idl_text();
/// The reference page of the automation interface, Markdown.
KORVANE_API std::string reference_text();
/// The member tables themselves as JSON, for packages in other languages: "classes" with their members and parameters,
/// "layer" with the objects of an instrument layer, "records", "enumerations".
KORVANE_API std::string tables_text();

/// Late-bound calls from texts, on objects that stay alive: the first call of a class makes its object.
class KORVANE_API TextCalls {
public:
    explicit TextCalls(Platform platform) : platform_(std::move(platform)) {}

    /// The first word is "CLASS.MEMBER" or "CLASS.PROPERTY=" (a put), the others are its arguments: JSON (numbers,
    /// texts, booleans, null, arrays, records as objects of their fields, {"call": "CLASS.MEMBER", "arguments": [...]}
    /// for an object) or else plain text; "name=..." with a parameter's name passes it by name. Returns a JSON object
    /// with "result" and, where there are any, "by_reference" with the new values of the arguments that were changed;
    /// on one line, or indented. Errors as `LateBound::invoke`; 5 naming an argument that is malformed JSON of an array
    /// or object.
    std::string call(const std::vector<std::string>& words, int indent = -1);
    /// The object of a class, by name or ProgID. Error 429 naming an unknown one.
    Object object_of(const std::string& class_name);

private:
    Platform platform_;
    std::map<std::string, Object> objects_;  ///< by class
};

/// The words of a line with a shell's quotes: '...' as it is, "..." with backslashes before quotes and backslashes,
/// a backslash before anything else; none from a # on. Error 5 for a quote that does not end.
KORVANE_API std::vector<std::string> words_of_line(std::string_view line);

}  // namespace korvane::automation
