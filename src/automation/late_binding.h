// The call itself, once a member is found: placing arguments, filling in defaults, calling.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>

#include "automation/class_description.h"

namespace korvane::automation {

/// Room for the arguments of one call; only as many values are made as the member has parameters.
class ArgumentStack {
public:
    explicit ArgumentStack(std::size_t count) : count_(count) {
        for (std::size_t place = 0; place < count_; ++place) std::construct_at(begin() + place, Missing{});
    }
    ~ArgumentStack() { std::destroy_n(begin(), count_); }
    ArgumentStack(const ArgumentStack&) = delete;
    ArgumentStack& operator=(const ArgumentStack&) = delete;

    Value& operator[](std::size_t place) { return begin()[place]; }
    std::span<Value> values() { return {begin(), count_}; }

private:
    Value* begin() { return reinterpret_cast<Value*>(room_); }

    alignas(Value) std::byte room_[most_parameters * sizeof(Value)];
    std::size_t count_;
};

/// Calls with one value a parameter; `Missing` takes the default. Error 449 naming a required parameter left out.
Value call_member(const Member& member, void* target, std::span<Value> placed);

}  // namespace korvane::automation
