// An automation object in the place of a native interface.
#pragma once

#include <string_view>
#include <type_traits>
#include <vector>

#include "automation/native_types.h"
#include "frame/routine.h"

namespace korvane::automation {

/// Runs a call of an interface's member; errors name it, "SetpointTable.Value", and keep number, source and help.
template <class Interface, class Body>
auto naming_errors(std::string_view member, Body body) {
    try {
        return body();
    } catch (...) {
        const Error error = current_error();
        throw error.described(error.description() + (error.description().empty() ? "(" : " (") +
                              std::string(type_name<Interface>) + "." + std::string(member) + ")");
    }
}

/// Error 91 for Nothing.
template <class T>
T required(T object) {
    if (!object) raise_runtime_fault(error_number::object_not_set);
    return object;
}

/// What the object raises, or returns that is not what was asked for, is an error that names the call.
template <class Interface>
class LateBoundAdapter : public Interface {
public:
    explicit LateBoundAdapter(Object object) : object_(std::move(object)) {}
    const Object& object() const noexcept { return object_; }

protected:
    /// Calls a member with native arguments; the result in a native type.
    template <class T, class... A>
    T ask(std::string_view member, const A&... arguments) const {
        return naming(member, [&] {
            const Value result = object_->call(member, {Native<A>::to(arguments)...});
            if constexpr (!std::is_void_v<T>) return Native<T>::from(result);
        });
    }
    /// The same for an object, which must not be Nothing.
    template <class T, class... A>
    T ask_for_object(std::string_view member, const A&... arguments) const {
        return naming(member,
                      [&] { return required(Native<T>::from(object_->call(member, {Native<A>::to(arguments)...}))); });
    }
    template <class T>
    std::vector<T> ask_for_list(std::string_view member, std::vector<Value> arguments = {}) const {
        return naming(member, [&] {
            const auto list = array_from<T>(object_->call(member, std::move(arguments)));
            return std::vector<T>(list.elements().begin(), list.elements().end());
        });
    }
    template <class Body>
    auto naming(std::string_view member, Body body) const {
        return naming_errors<Interface>(member, body);
    }

private:
    Object object_;
};

}  // namespace korvane::automation
