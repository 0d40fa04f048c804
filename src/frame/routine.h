// The routine guard: tracing, and what becomes of an error. Written here once for every routine. Numbers out of stored
// texts and instrument values, with an error that says where they stand.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "korvane/error.h"
#include "korvane/system.h"
#include "platform/text.h"

namespace korvane {

/// What one thread knows of one tracer. The flag is read once, when the tracer is created.
struct ThreadTrace {
    std::uint64_t factory_id = 0;
    std::unique_ptr<Tracer> tracer;
    bool flag = false;
    std::vector<std::pair<std::string, std::int32_t>> call_stack;  // newest last
};

/// The way to the current thread's tracer; a class keeps one and hands it to its routines. `error_line`, where given,
/// takes the text of the last error line of these routines.
class Trace {
public:
    explicit Trace(std::shared_ptr<TracerFactory> factory, std::string* error_line = nullptr)
        : factory_(std::move(factory)), error_line_(error_line) {}

    /// The thread's state, made (with its tracer) at the first call on the thread.
    ThreadTrace& thread() const {
        ThreadTrace* recent = recent_;
        return recent && recent->factory_id == factory_->id() ? *recent : start_up();
    }
    std::string* error_line() const { return error_line_; }

private:
    ThreadTrace& start_up() const;

    static constinit thread_local ThreadTrace* recent_;  // otherwise every use would ask first whether it is made
    std::shared_ptr<TracerFactory> factory_;
    std::string* error_line_;
};

/// One routine's trace record. Records of a thread are released in reverse order of their making.
/// Making one asks nothing of the tracer, so that it cannot fail.
class TraceObj {
public:
    explicit TraceObj(const Trace& trace) noexcept : trace_(trace) {}
    ~TraceObj() {
        if (entered_) [[unlikely]]
            TR_EXIT();
    }
    TraceObj(const TraceObj&) = delete;
    TraceObj& operator=(const TraceObj&) = delete;

    bool is_on() {
        if (!state_) state_ = &trace_.thread();
        return state_->flag;
    }

    void TR_ENTRY(std::int32_t level, std::string_view funcName) {
        if (is_on()) [[unlikely]]
            enter(level, funcName);
    }

    /// Traces the pieces put together; they are not looked at when tracing is off.
    template <class... Pieces>
    void TR_PRINT(const Pieces&... pieces) {
        if (is_on()) [[unlikely]]
            print_pieces(pieces...);
    }

    /// Traces an error line and leaves it where the trace keeps the last one.
    template <class... Pieces>
    void error_line(const Pieces&... pieces) {
        if (std::string* kept = trace_.error_line()) *kept = text_of(pieces...);
        TR_PRINT(pieces...);
    }

private:
    // Out of line, so that a routine carries none of it while tracing is off.
    template <class... Pieces>
    [[gnu::noinline, gnu::cold]] void print_pieces(const Pieces&... pieces) {
        print(text_of(pieces...));
    }
    void enter(std::int32_t level, std::string_view routine);
    void print(std::string_view text);
    void TR_EXIT() noexcept;

    const Trace& trace_;
    ThreadTrace* state_ = nullptr;
    bool entered_ = false;
};

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
    std::string_view before, between, after = {};
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

/// The same under the name of the function that calls it.
template <class Body>
auto routine(const Trace& trace, const Body& body, std::string_view caller = __builtin_FUNCTION()) {
    return routine(trace, {caller}, NamedLine{}, body);
}
template <class Reaction, class Body>
requires std::invocable<Reaction, TraceObj&, RoutineName, const Error&>
auto routine(const Trace& trace, const Reaction& reaction, const Body& body,
             std::string_view caller = __builtin_FUNCTION()) {
    return routine(trace, {caller}, reaction, body);
}

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
