// The routine guard: entry trace, and what becomes of an error. Written here once for every routine.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "frame/trace.h"
#include "korvane/error.h"
#include "platform/text.h"

namespace korvane {

inline constexpr std::int32_t usual_trace_level = 9;

/// The exception being handled, as an automation error: file faults and memory faults get the runtime's numbers.
Error current_error();

/// A routine's name and trace level.
struct RoutineName {
    std::string_view name;
    std::int32_t level = usual_trace_level;
};

/// Reaction: the usual error line, "Error[number] in name(): description".
struct NamedLine {
    std::string_view word = "Error";
    void operator()(TraceObj& record, RoutineName name, const Error& error) const {
        record.error_line(word, "[", error.number(), "] in ", name.name, "(): ", error.description());
    }
};

/// Reaction: an error line of another shape: before, number, between, description, after.
struct ErrorLine {
    std::string_view before;
    std::string_view between;
    std::string_view after = {};
    void operator()(TraceObj& record, RoutineName, const Error& error) const {
        record.error_line(before, error.number(), between, error.description(), after);
    }
};

/// Reaction: no line; the routine has no handler of its own.
inline constexpr auto no_line = [](TraceObj&, RoutineName, const Error&) {};

/// Reaction: a routine without a result ends in peace after `line`, even where the tracer fails.
template <class Line>
auto swallowed_after(Line line) {
    return [line](TraceObj& record, RoutineName name, const Error& error) {
        try {
            line(record, name, error);
        } catch (...) {
            // The text is kept before it is traced; who swallows an error is not to raise another.
        }
        return true;
    };
}

/// Runs `body(TraceObj&)`, or `body()`, as a traced routine. An error goes to `reaction(TraceObj&, RoutineName, const
/// Error&)`: when that returns nothing, the error is raised again; what it throws takes the error's place; what it
/// returns is the routine's result, or ends a routine that has none.
template <class Reaction, class Body>
auto routine(const Trace& trace, RoutineName name, const Reaction& reaction, const Body& body) {
    TraceObj record(trace);
    const auto run = [&] {
        if constexpr (std::invocable<Body, TraceObj&>)
            return body(record);
        else
            return body();
    };
    try {
        record.TR_ENTRY(name.level, name.name);
        return run();
    } catch (...) {
        const Error error = current_error();
        if constexpr (std::is_void_v<decltype(reaction(record, name, error))>) {
            reaction(record, name, error);
            throw error;
        } else if constexpr (std::is_void_v<decltype(run())>) {
            reaction(record, name, error);
        } else {
            return reaction(record, name, error);
        }
    }
}

/// A routine with the usual error line, raising again.
template <class Body>
auto routine(const Trace& trace, RoutineName name, const Body& body) {
    return routine(trace, name, NamedLine{}, body);
}

}  // namespace korvane
