// An automation object in the place of a native interface.
#pragma once

#include <string_view>
#include <type_traits>
#include <vector>

#include "automation/native_types.h"

namespace korvane::automation {

template <class Interface>
class LateBoundAdapter : public Interface {
public:
    explicit LateBoundAdapter(Object object) : object_(std::move(object)) {}
    const Object& object() const noexcept { return object_; }

protected:
    /// Calls a member with native arguments; the result in a native type.
    template <class T, class... A>
    T ask(std::string_view member, const A&... arguments) const {
        const Value result = object_->call(member, {Native<A>::to(arguments)...});
        if constexpr (!std::is_void_v<T>) return Native<T>::from(result);
    }
    template <class T>
    std::vector<T> ask_for_list(std::string_view member, const Value& argument = Missing{}) const {
        std::vector<Value> arguments;
        if (!argument.holds<Missing>()) arguments.push_back(argument);
        const auto list = array_from<T>(object_->call(member, arguments));
        return {list.elements().begin(), list.elements().end()};
    }

private:
    Object object_;
};

}  // namespace korvane::automation
