// Every member by the vtable and by Invoke: the same result, the same arguments, the same error.
#include <gtest/gtest.h>

#include "automation/com/variant_conversion.h"
#include "member_calls.h"
#include "server_world.h"
#include "variant_text.h"

namespace korvane::automation {
namespace {

std::vector<Value> fitting_values(ServerWorld& world, const Member& member) {
    std::vector<Value> values;
    for (const Parameter& parameter : member.parameters())
        values.push_back(fitting_value(world.native, member, parameter));
    return values;
}

class MembersOfClass : public testing::TestWithParam<std::string> {
protected:
    const ClassDescription& description = class_named(GetParam());
};

// Two worlds of the same seed go through the same calls, one by each way.
TEST_P(MembersOfClass, DoTheSameByTheVtableAndByInvoke) {
    ServerWorld invoked_world, slot_world;
    const auto invoked = invoked_world.create(description), slot = slot_world.create(description);
    int successes = 0;
    for (std::size_t index = 0; index < description.members.size(); ++index) {
        const Member& member = description.members[index];
        CallTexts by_invoke = call_by_invoke(*invoked.get(), member, fitting_values(invoked_world, member));
        CallTexts by_slot = call_by_vtable(*slot.get(), index, member, fitting_values(slot_world, member));
        for (std::string& text : by_invoke) text = invoked_world.without_folder(text);
        for (std::string& text : by_slot) text = slot_world.without_folder(text);
        EXPECT_EQ(by_invoke, by_slot) << member.name;
        successes += by_slot.front() == "Success";
    }
    EXPECT_GE(3 * successes, static_cast<int>(description.members.size())) << "hardly anything was compared";
}

TEST_P(MembersOfClass, SurviveNullPointersInEveryPlace) {
    ServerWorld world;
    const auto object = world.create(description);
    ImpatientUser user(world.native);
    for (std::size_t index = 0; index < description.members.size(); ++index) {
        const Member& member = description.members[index];
        user.calm_down();
        const HRESULT code = call_with_null_pointers(*object.get(), index, member);
        EXPECT_TRUE(member.result.kind == TypeKind::none || code == E_POINTER) << member.name;
    }
}

// What late binding answers by itself for a wrong argument, a client can tell from what a member raised.
TEST_P(MembersOfClass, EndHostileArgumentsInAnErrorOrAResult) {
    ServerWorld world;
    const auto object = world.create(description);
    ImpatientUser user(world.native);
    int calls = 0;
    for (const Member& member : description.members) {
        const std::vector<Value> fitting = fitting_values(world, member);
        for (std::size_t place = 0; place < fitting.size(); ++place)
            for (const auto& [name, value] : hostile_values(world.native)) {
                std::vector<Variant> variants(fitting.size());
                for (std::size_t other = 0; other < fitting.size(); ++other)
                    fill_variant(other == place ? value : fitting[other], *variants[fitting.size() - 1 - other]);
                std::vector<VARIANT> references(fitting.size());
                for (std::size_t other = 0; other < fitting.size(); ++other) {
                    references[other].vt = VT_BYREF | VT_VARIANT;
                    references[other].pvarVal = variants[other].get();
                }
                DISPID put_name = DISPID_PROPERTYPUT;
                const bool put = member.kind == MemberKind::property_put;
                DISPPARAMS parameters{references.data(), put ? &put_name : nullptr,
                                      static_cast<UINT>(references.size()), put ? 1u : 0u};
                Variant result;
                EXCEPINFO details{};
                UINT wrong = 0;
                user.calm_down();
                const HRESULT code =
                    object->Invoke(member.dispid, IID_NULL, 0, put ? DISPATCH_PROPERTYPUT : DISPATCH_METHOD,
                                   &parameters, put ? nullptr : result.get(), &details, &wrong);
                EXPECT_TRUE(code == S_OK || code == DISP_E_EXCEPTION || code == DISP_E_TYPEMISMATCH ||
                            code == DISP_E_OVERFLOW || code == DISP_E_PARAMNOTOPTIONAL)
                    << member.name << ", argument " << place << " " << name << ": " << code;
                const std::string outcome = text_of_outcome(code, details);
                EXPECT_EQ(outcome.find("error -2146828237"), std::string::npos) << outcome << ": an internal error";
                ++calls;
            }
    }
    const bool takes_arguments = GetParam() != "AbortHelper";
    EXPECT_EQ(calls > 0, takes_arguments);
}

INSTANTIATE_TEST_SUITE_P(Classes, MembersOfClass,
                         testing::Values("TuneGlobals", "SpectrumParser", "CalMassList", "clsTuneParamsXML",
                                         "clsTunePrefsXML", "AbortHelper", "PeakList", "MassTimeCalibration"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace korvane::automation
