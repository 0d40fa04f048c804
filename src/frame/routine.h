// The routine guard: entry trace, the error line, and the same error raised again. Written here once for every routine.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "frame/text.h"
#include "frame/trace.h"
#include "korvane/error.h"

namespace korvane {

inline constexpr std::int32_t usual_trace_level = 9;

/// The exception being handled, as an automation error: file faults and memory faults get the runtime's numbers.
Error current_error();

/// The shape of a routine's error line: before, number, between, description, after.
struct ErrorLine {
    std::string_view before;
    std::string_view between;
    std::string_view after = {};
    std::string_view item = {};
    std::string_view closing = {};

    std::string text(const Error& error) const {
        return text_of(before, error.number(), between, error.description(), after, item, closing);
    }
};

/// A routine's name and trace level.
struct RoutineName {
    std::string_view name;
    std::int32_t level = usual_trace_level;
};

/// Runs `body(TraceObj&)` as a traced routine with a handler of its own: `handle(TraceObj&, const Error&)`. A handler
/// without a result has the error raised again when it returns; the result of one with a result is the routine's.
template <class Body, class Handle>
auto handled_routine(const Trace& trace, RoutineName name, Body&& body, Handle&& handle) {
    TraceObj record(trace);
    try {
        record.TR_ENTRY(name.level, name.name);
        return std::forward<Body>(body)(record);
    } catch (...) {
        const Error error = current_error();
        if constexpr (std::is_void_v<decltype(handle(record, error))>) {
            handle(record, error);
            throw error;
        } else {
            return handle(record, error);
        }
    }
}

/// Runs `body(TraceObj&)` as a traced routine. `line` is an `ErrorLine` or anything else with `text(const Error&)`.
template <class Line, class Body>
auto routine(const Trace& trace, RoutineName name, const Line& line, Body&& body) {
    return handled_routine(trace, name, std::forward<Body>(body),
                           [&](TraceObj& record, const Error& error) { record.TR_PRINT(line.text(error)); });
}

/// A traced routine without a handler of its own: errors pass.
template <class Body>
auto unguarded_routine(const Trace& trace, RoutineName name, Body&& body) {
    TraceObj record(trace);
    record.TR_ENTRY(name.level, name.name);
    return std::forward<Body>(body)(record);
}

/// A traced routine that reports every error as `replacement`.
template <class Line, class Body>
auto replacing_routine(const Trace& trace, RoutineName name, const Line& line, const Error& replacement, Body&& body) {
    TraceObj record(trace);
    try {
        record.TR_ENTRY(name.level, name.name);
        return std::forward<Body>(body)(record);
    } catch (...) {
        record.TR_PRINT(line.text(current_error()));
        throw replacement;
    }
}

/// A traced routine that swallows its errors: `line.text` goes to the trace and, with the error, to `keep`.
template <class Line, class Body, class Keep>
void swallowing_routine(const Trace& trace, RoutineName name, const Line& line, Body&& body, Keep&& keep) {
    TraceObj record(trace);
    try {
        record.TR_ENTRY(name.level, name.name);
        std::forward<Body>(body)(record);
    } catch (...) {
        const Error error = current_error();
        std::string text = line.text(error);
        record.TR_PRINT(text);
        keep(std::move(text), error);
    }
}

}  // namespace korvane
