#include "frame/routine.h"

#include <new>
#include <unordered_map>

#include "frame/lazy_instrument.h"
#include "platform/files.h"
#include "platform/per_thread.h"

namespace korvane {

namespace {

constexpr std::string_view module_name = "korvanetune";

// By factory. A thread works with one platform, seldom with a few; tracers live as long as the thread.
using ThreadStates = std::unordered_map<std::uint64_t, ThreadTrace>;

constexpr std::int32_t out_of_memory = 7;
constexpr std::int32_t internal_error = 51;

/// Of an exception that nobody in the library raises: most likely the instrument layer's.
Error unexpected(std::string_view description) {
    const char* const call = last_instrument_call();
    return Error(internal_error, "Korvane",
                 call ? text_of(description, " (last instrument call: ", call, "())") : std::string(description));
}

}  // namespace

constinit thread_local ThreadTrace* Trace::recent_ = nullptr;

ThreadTrace& Trace::start_up() const {
    auto& thread_states = of_this_thread<ThreadStates>();
    auto known = thread_states.find(factory_->id());
    if (known == thread_states.end()) {
        ThreadTrace state;
        state.factory_id = factory_->id();
        state.tracer = factory_->create(tracer_prog_id);
        state.tracer->set_module_name(std::string(module_name));
        state.flag = state.tracer->trace_flag();
        known = thread_states.emplace(state.factory_id, std::move(state)).first;
    }
    recent_ = &known->second;
    return *recent_;
}

void TraceObj::enter(std::int32_t level, std::string_view routine) {
    state_->call_stack.emplace_back(routine, level);
    entered_ = true;
    state_->tracer->entry(state_->call_stack.back().first, level);
}

void TraceObj::print(std::string_view text) {
    static const std::pair<std::string, std::int32_t> nobody{"", 0};
    const auto& [routine, level] = state_->call_stack.empty() ? nobody : state_->call_stack.back();
    state_->tracer->trace_print(std::string(trimmed(text, " ")), routine, level);
}

void TraceObj::TR_EXIT() noexcept {
    try {
        const auto& [routine, level] = state_->call_stack.back();
        state_->tracer->exit(routine, level);
    } catch (...) {
        // The routine is over and has its result; there is nobody left to tell.
    }
    state_->call_stack.pop_back();
}

Error current_error() {
    try {
        throw;
    } catch (const Error& error) {
        return error;
    } catch (const FileError& error) {
        return Error(error.runtime_error_number(), "Korvane", error.what());
    } catch (const std::bad_alloc&) {
        return Error(out_of_memory, "Korvane", "Out of memory");
    } catch (const std::exception& error) {
        return unexpected(error.what());
    } catch (...) {
        return unexpected("Internal error");
    }
}

}  // namespace korvane
