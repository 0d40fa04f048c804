// Vtables out of member tables: for every member a function with the parameters that its line says.
#pragma once

#include <algorithm>
#include <array>
#include <tuple>
#include <type_traits>
#include <utility>

#include "automation/com/com_object.h"

namespace korvane::automation {

/// Calls a member from the vtable. `slots` are the addresses of the arguments on the stack; `result` is where the
/// result goes, null for a member without one. Errors are left in the thread's error object.
HRESULT call_from_vtable(ComObject& self, const Member& member, void* const* slots, void* result) noexcept;

namespace detail {

/// How an argument by value lies on the stack, by `TypeKind`. By reference it is a pointer, whatever it points to; so
/// is an object or an array.
using ValueSlots = std::tuple<void, VARIANT, VARIANT_BOOL, LONG, float, double, BSTR, LONG, void, void*, void*, void*>;

template <const auto& members, std::size_t index>
struct Thunk {
    static constexpr const Member& member = members[index];

    // A record by value would have no slot: records are passed by reference.
    template <std::size_t place>
    using Slot = std::conditional_t<
        member.parameter_slots[place].is_by_reference(), void*,
        std::tuple_element_t<static_cast<std::size_t>(member.parameter_slots[place].type.kind), ValueSlots>>;

    template <class Places>
    struct With;
    template <std::size_t... place>
    struct With<std::index_sequence<place...>> {
        static HRESULT STDMETHODCALLTYPE without_result(ComObject* self, Slot<place>... arguments) {
            void* const slots[] = {&arguments..., nullptr};
            return call_from_vtable(*self, member, slots, nullptr);
        }
        static HRESULT STDMETHODCALLTYPE with_result(ComObject* self, Slot<place>... arguments, void* result) {
            void* const slots[] = {&arguments..., nullptr};
            if (!result) return E_POINTER;
            return call_from_vtable(*self, member, slots, result);
        }
    };

    static const void* address() {
        using Function = With<std::make_index_sequence<member.parameter_count>>;
        if constexpr (member.result.kind == TypeKind::none) {
            return address_of(&Function::without_result);
        } else {
            return address_of(&Function::with_result);
        }
    }
};

}  // namespace detail

inline constexpr std::size_t common_slot_count = 7;

/// The addresses of the common slots.
const std::array<const void*, common_slot_count>& common_slots();

template <const auto& members>
const void* const* make_vtable() {
    static const auto vtable = []<std::size_t... index>(std::index_sequence<index...>) {
        std::array<const void*, common_slot_count + sizeof...(index)> slots{};
        std::copy(common_slots().begin(), common_slots().end(), slots.begin());
        ((slots[common_slot_count + index] = detail::Thunk<members, index>::address()), ...);
        return slots;
    }
    (std::make_index_sequence<members.size()>());
    return vtable.data();
}

}  // namespace korvane::automation
