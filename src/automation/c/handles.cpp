#include "automation/c/handles.h"

#include "frame/routine.h"

namespace korvane::automation::c {

namespace {

thread_local Error last_error(0, "", "");
constinit thread_local CallScope* innermost_call = nullptr;

}  // namespace

Kept::~Kept() {
    for (const korvane_handle object : objects) handles().free(object);
}

korvane_handle Handles::add(Content content) {
    const std::lock_guard lock(mutex_);
    contents_.emplace(++last_, std::move(content));
    return last_;
}

Handles::Content Handles::any(korvane_handle handle) const {
    const std::lock_guard lock(mutex_);
    const auto known = contents_.find(handle);
    if (known == contents_.end())
        raise_runtime_fault(error_number::object_not_set,
                            "handle " + std::to_string(handle) + (handle == 0 ? "" : ", which is none or was freed"));
    return known->second;
}

void Handles::free(korvane_handle handle) noexcept {
    // What goes may free handles in its turn.
    std::unique_lock lock(mutex_);
    const auto content = contents_.extract(handle);
    lock.unlock();
}

Handles& handles() {
    static Handles& all = *new Handles;
    return all;
}

int32_t note_error() noexcept {
    last_error = current_error();
    return 1 + static_cast<int32_t>(last_error.kind());
}

CallScope::CallScope(korvane_handle token)
    : given_(token == 0 ? own_ : handles().get<AbortToken>(token, "an abort token")),
      scope_(own_),
      outer_(innermost_call) {
    innermost_call = this;
}

CallScope::~CallScope() {
    innermost_call = outer_;
}

void CallScope::abort() noexcept {
    if (innermost_call) innermost_call->own_.abort();
}

}  // namespace korvane::automation::c

using namespace korvane;
using namespace korvane::automation::c;

extern "C" {

void korvane_last_error(korvane_error* error) {
    if (!error) return;
    *error = {last_error.number(), 1 + static_cast<int32_t>(last_error.kind()), last_error.source().c_str(),
              last_error.description().c_str(), last_error.cause().c_str()};
}

int32_t korvane_copy(korvane_handle handle, korvane_handle* copy) {
    return guarded([&] { given(copy, "copy") = handles().add(handles().any(handle)); });
}

void korvane_free(korvane_handle handle) {
    handles().free(handle);
}

void korvane_clear(korvane_value* value) {
    if (!value) return;
    handles().free(value->owner);
    *value = {};
}

int32_t korvane_token(korvane_handle* token) {
    return guarded([&] { given(token, "token") = handles().add(AbortToken()); });
}

int32_t korvane_abort(korvane_handle token) {
    return guarded([&] { handles().get<AbortToken>(token, "an abort token").abort(); });
}

}  // extern "C"
