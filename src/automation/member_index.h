// Finds the members of a class by number and by name, each in one step.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "automation/member.h"
#include "korvane/automation.h"

namespace korvane::automation {

class MemberIndex {
public:
    explicit MemberIndex(std::span<const Member> members);

    /// The member of a number that serves an access; null where there is none.
    const Member* find(std::int32_t dispid, Access access) const noexcept {
        if (dispid <= 0 || static_cast<std::size_t>(dispid) >= by_dispid_.size()) return nullptr;
        const Uses& uses = by_dispid_[static_cast<std::size_t>(dispid)];
        if (access == Access::put) return uses.put;
        return access == Access::call || (uses.read && uses.read->kind == MemberKind::property_get) ? uses.read
                                                                                                    : nullptr;
    }

    /// Number of a member, whatever the case of its name; 0 where there is none.
    template <class Character>
    std::int32_t dispid_of(std::basic_string_view<Character> name) const noexcept {
        for (std::size_t slot = hash(name) & mask_; by_name_[slot]; slot = (slot + 1) & mask_)
            if (matches(by_name_[slot]->name, name)) return by_name_[slot]->dispid;
        return 0;
    }

    /// Place of a parameter among those of all members of a number; -1 where there is none.
    template <class Character>
    static std::int32_t parameter_place(const Member& member, std::basic_string_view<Character> name) noexcept {
        for (std::size_t place = 0; place < member.parameter_count; ++place)
            if (matches(member.parameter_slots[place].name, name)) return static_cast<std::int32_t>(place);
        return -1;
    }

private:
    /// A method or property read, and the property's put.
    struct Uses {
        const Member* read = nullptr;
        const Member* put = nullptr;
    };

    template <class Character>
    static constexpr std::uint32_t folded(Character letter) noexcept {
        const auto code = static_cast<std::uint32_t>(letter);
        return code >= 'A' && code <= 'Z' ? code + ('a' - 'A') : code;
    }
    template <class Character>
    static std::size_t hash(std::basic_string_view<Character> name) noexcept {
        std::uint32_t code = 2166136261u;  // FNV-1a
        for (const Character letter : name) code = (code ^ folded(letter)) * 16777619u;
        return code;
    }
    template <class Character>
    static bool matches(std::string_view known, std::basic_string_view<Character> name) noexcept {
        if (known.size() != name.size()) return false;
        for (std::size_t place = 0; place < known.size(); ++place)
            if (folded(static_cast<unsigned char>(known[place])) != folded(name[place])) return false;
        return true;
    }

    std::vector<Uses> by_dispid_;
    std::vector<const Member*> by_name_;  ///< open addressing; a power of two, at least twice the members
    std::size_t mask_ = 0;
};

}  // namespace korvane::automation
