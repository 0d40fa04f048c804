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

std::string type_word(const DeclaredType& type) {
    static const std::map<TypeKind, std::string> words{{TypeKind::none, ""},
                                                       {TypeKind::variant, "variant"},
                                                       {TypeKind::boolean, "boolean"},
                                                       {TypeKind::long_integer, "long"},
                                                       {TypeKind::single, "single"},
                                                       {TypeKind::real, "double"},
                                                       {TypeKind::text, "string"},
                                                       {TypeKind::real_array, "doubles"},
                                                       {TypeKind::text_array, "strings"}};
    const auto word = words.find(type.kind);
    return word == words.end() ? std::string(type.name) : word->second;
}

std::string default_text(const Parameter& parameter) {
    const Value value = default_value_of(parameter);
    if (value.holds<Missing>()) return parameter.optional ? " optional" : "";
    if (const auto* text = value.get_if<std::string>()) return " = '" + *text + "'";
    if (const auto* number = value.get_if<double>(); number && parameter.type.kind != TypeKind::single) {
        std::string text = std::to_string(*number);
        text.erase(std::max(text.find_last_not_of('0'), text.find('.') + 1) + 1);
        return " = " + text;
    }
    return " = " + value.as_text();
}

std::string line_of(const Member& member) {
    static const std::map<MemberKind, std::string> kinds{
        {MemberKind::method, ""}, {MemberKind::property_get, "get "}, {MemberKind::property_put, "let "}};
    std::string line = kinds.at(member.kind) + std::string(member.name) + "(";
    std::string separator;
    for (const Parameter& parameter : member.parameters()) {
        line += separator + (parameter.is_by_reference() ? "ref " : "") + std::string(parameter.name) + ": " +
                type_word(parameter.type) + default_text(parameter);
        separator = ", ";
    }
    const std::string result = type_word(member.result);
    return line + ")" + (result.empty() ? "" : ": " + result);
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
        for (const Member& member : description->members) found.push_back(line_of(member));
        EXPECT_EQ(found, lines) << name;
        members += lines.size();
    }
    EXPECT_EQ(members, 106u);
}

TEST(Members, NumbersNameOneMemberEachAndBothHalvesOfAProperty) {
    for (const ClassDescription& description : class_descriptions()) {
        std::map<std::int32_t, std::string_view> names;
        std::set<std::pair<std::int32_t, MemberKind>> uses;
        for (const Member& member : description.members) {
            EXPECT_GT(member.dispid, 0);
            EXPECT_EQ(names.emplace(member.dispid, member.name).first->second, member.name) << description.name;
            EXPECT_TRUE(uses.emplace(member.dispid, member.kind).second) << description.name << " " << member.name;
            const Access access = member.kind == MemberKind::property_put ? Access::put : Access::call;
            EXPECT_EQ(description.find(member.dispid, access), &member);
            EXPECT_EQ(description.dispid_of(member.name), member.dispid);
        }
        EXPECT_EQ(description.dispid_of("NoSuchMember"), 0);
        EXPECT_EQ(description.find(static_cast<std::int32_t>(names.size()) + 1, Access::call), nullptr);
    }
}

// An optional parameter before a required one could never be left out by position.
TEST(Members, RequiredParametersComeFirst) {
    for (const ClassDescription& description : class_descriptions())
        for (const Member& member : description.members) {
            bool optional = false;
            for (const Parameter& parameter : member.parameters()) {
                EXPECT_TRUE(parameter.optional || !optional) << member.name << "." << parameter.name;
                optional = optional || parameter.optional;
            }
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
