// The member tables against the members that callers rely on.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>

#include "automation/class_description.h"
#include "automation/enumerations.h"
#include "automation/records.h"

namespace korvane::automation {
namespace {

using Lines = std::vector<std::string>;

std::map<std::string, Lines> written_down() {
    std::ifstream in(KORVANE_SOURCE_DIR "/tests/automation/members.txt");
    std::map<std::string, Lines> classes;
    Lines* current = nullptr;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with('[')) {
            current = &classes[line.substr(1, line.size() - 2)];
        } else if (!line.empty() && !line.starts_with('#')) {
            current->push_back(line);
        }
    }
    return classes;
}

TEST(Members, NoneIsMissingRenamedReorderedOrDeclaredOtherwise) {
    const auto expected = written_down();
    ASSERT_EQ(expected.size(), 6u);
    std::size_t members = 0;
    for (const auto& [name, lines] : expected) {
        const ClassDescription* const description = find_class("Korvane." + name);
        ASSERT_NE(description, nullptr) << name;
        EXPECT_NE(description->create, nullptr) << name << " must be creatable";
        Lines found;
        for (const Member& member : description->members) found.push_back(signature_text(member));
        EXPECT_EQ(found, lines) << name;
        members += lines.size();
    }
    EXPECT_EQ(members, 106u);
}

TEST(Members, AreFoundByNumberUseAndNameInAnyCase) {
    for (const ClassDescription& description : class_descriptions()) {
        for (const Member& member : description.members) {
            const Access access = member.kind == MemberKind::property_put ? Access::put : Access::call;
            EXPECT_EQ(description.find(member.dispid, access), &member) << description.name << " " << member.name;
            EXPECT_EQ(description.dispid_of(member.name), member.dispid);
        }
        EXPECT_EQ(description.dispid_of("NoSuchMember"), 0);
        EXPECT_EQ(description.find(description.members.back().dispid + 1, Access::call), nullptr);
    }
}

// Enumerators share one scope in a type library; identifiers must be unique in the world.
TEST(Members, NamesAndIdentifiersOfTheLibraryAreUnique) {
    std::set<std::string_view> identifiers, names;
    for (const ClassDescription& description : class_descriptions()) {
        EXPECT_TRUE(identifiers.insert(description.class_id).second);
        EXPECT_TRUE(identifiers.insert(description.interface_id).second);
        EXPECT_TRUE(names.insert(description.name).second);
    }
    for (const RecordDescription& record : record_descriptions()) {
        EXPECT_TRUE(identifiers.insert(record.guid).second);
        EXPECT_TRUE(names.insert(record.name).second);
    }
    for (const EnumerationDescription& enumeration : enumeration_descriptions()) {
        EXPECT_TRUE(names.insert(enumeration.name).second);
        for (const Enumerator& member : enumeration.members)
            EXPECT_TRUE(names.insert(member.name).second) << member.name;
    }
}

}  // namespace
}  // namespace korvane::automation
