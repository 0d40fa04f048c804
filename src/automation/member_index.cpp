#include "automation/member_index.h"

#include <algorithm>
#include <bit>

namespace korvane::automation {

MemberIndex::MemberIndex(std::span<const Member> members)
    : by_name_(std::bit_ceil(members.size() * 2 + 2)), mask_(by_name_.size() - 1) {
    for (const Member& member : members) {
        const auto number = static_cast<std::size_t>(member.dispid);
        if (number >= by_dispid_.size()) by_dispid_.resize(number + 1);
        Uses& uses = by_dispid_[number];
        (member.kind == MemberKind::property_put ? uses.put : uses.read) = &member;
        if (dispid_of(member.name) != 0) continue;
        std::size_t slot = hash(member.name) & mask_;
        while (by_name_[slot]) slot = (slot + 1) & mask_;
        by_name_[slot] = &member;
    }
}

}  // namespace korvane::automation
