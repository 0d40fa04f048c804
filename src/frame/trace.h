// Tracing: per-thread state of the tracer, and the record that every routine makes at its entry.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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
    bool is_on() {
        if (!state_) state_ = &trace_.thread();
        return state_->flag;
    }
    void enter(std::int32_t level, std::string_view routine);
    void print(std::string_view text);
    void TR_EXIT() noexcept;

    const Trace& trace_;
    ThreadTrace* state_ = nullptr;
    bool entered_ = false;
};

}  // namespace korvane
