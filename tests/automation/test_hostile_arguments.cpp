// Every member with every parameter set to what a careless script may pass: an error or a result, never a crash.
#include <gtest/gtest.h>

#include "argument_values.h"

namespace korvane::automation {
namespace {

void call_with(const Object& object, const Member& member, Arguments arguments, const std::string& what) {
    try {
        object->invoke(member.dispid, arguments, member.access);
    } catch (const Error& error) {
        EXPECT_NE(error.number(), 0) << what;
        EXPECT_NE(error.number(), 51) << what << " ended in an internal error: " << error.description();
    } catch (const std::exception& error) {
        ADD_FAILURE() << what << " let an exception out that is no error: " << error.what();
    }
}

TEST(HostileArguments, EndInAnErrorOrAResult) {
    for (const ClassDescription& description : class_descriptions()) {
        EmbeddedWorld world;
        const Object object = object_of(world, description);
        ASSERT_TRUE(object) << description.name;
        ImpatientUser user(world);
        for (const Member& member : description.members) {
            const std::vector<Value> fitting = fitting_values(world, member);
            call_with(object, member, {fitting, {}}, std::string(member.name));
            for (std::size_t place = 0; place < fitting.size(); ++place)
                for (const auto& [name, value] : hostile_values(world)) {
                    Arguments arguments{fitting, {}};
                    arguments.positional[place] = value;
                    user.calm_down();
                    call_with(object, member, arguments,
                              std::string(member.name) + ", " + std::string(member.parameter_slots[place].name) +
                                  " = " + name);
                }
        }
    }
}

}  // namespace
}  // namespace korvane::automation
