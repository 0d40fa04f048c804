// Values between C and automation, and what C holds: numbers for objects, platforms, abort tokens, and the owners of
// what values point to.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "korvane/automation.h"
#include "korvane/korvane_c.h"
#include "korvane/restoring.h"
#include "korvane/watching.h"

namespace korvane::automation::c {

/// What a value that the library hands out points to.
struct Kept {
    ~Kept();
    Value value;
    std::vector<std::unique_ptr<korvane_value[]>> elements;
    std::vector<korvane_handle> objects;
};

/// The spectrum that an instrument gave last.
struct LastSpectrum {
    std::mutex mutex;
    AcquiredSpectrum spectrum;
};

struct OpenPlatform {
    Platform platform;
    std::shared_ptr<LastSpectrum> last;
    std::shared_ptr<Restoring> guard;
};

/// Numbers are never used twice, so that one that was freed is known for it.
class Handles {
public:
    using Content = std::variant<Object, std::shared_ptr<OpenPlatform>, AbortToken, std::shared_ptr<const Kept>>;

    korvane_handle add(Content content);
    /// Error 91 for none and for one that was freed, 13 for one of another sort.
    template <class T>
    T get(korvane_handle handle, const char* wanted) const {
        const Content content = any(handle);
        if (const T* found = std::get_if<T>(&content)) return *found;
        raise_runtime_fault(error_number::type_mismatch,
                            "handle " + std::to_string(handle) + " in the place of " + wanted);
    }
    Content any(korvane_handle handle) const;
    void free(korvane_handle handle) noexcept;

private:
    mutable std::mutex mutex_;
    std::unordered_map<korvane_handle, Content> contents_;
    korvane_handle last_ = 0;
};

/// The process's own; they outlive everything.
Handles& handles();

inline Object object_of(korvane_handle handle) {
    return handles().get<Object>(handle, "an object");
}

/// Error 5 naming what is null.
template <class T>
T& given(T* pointer, const char* what) {
    if (!pointer) raise_runtime_fault(error_number::invalid_call, std::string(what) + " is null");
    return *pointer;
}

/// The exception being handled becomes the thread's last error. Returns its kind for C.
int32_t note_error() noexcept;

/// Runs the body of a function of the interface.
template <class Body>
int32_t guarded(const Body& body) noexcept {
    try {
        body();
        return KORVANE_OK;
    } catch (...) {
        return note_error();
    }
}

/// A copy of what the value holds. Errors: 13 an unknown kind, 5 null where something is counted, 9 bounds that do not
/// fit, and those of handles.
Value value_from(const korvane_value& value);

/// Puts a value into the caller's, which is cleared first; what it points to is kept until its owner is freed.
void give(korvane_value& place, Value value);

}  // namespace korvane::automation::c
