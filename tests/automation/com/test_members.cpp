// Every member by the vtable, by Invoke and natively: the same result, the same arguments, the same error.
#include <gtest/gtest.h>

#include <cstring>

#include "automation/com/record_info.h"
#include "automation/com/safe_arrays.h"
#include "automation/com/variant_conversion.h"
#include "server_world.h"

namespace korvane::automation {
namespace {

/// A variable of a declared type, as a client written in a typed language has it.
class Variable {
public:
    explicit Variable(const DeclaredType& type, const Value& value = {}) : kind_(type.description().variant_type) {
        if (kind_ == VT_RECORD) {
            info_ = record_info_of(*find_record(type.name));
            record_ = info_->RecordCreate();
            if (const auto* record = value.get_if<Record>())
                std::memcpy(record_, data_of(*record), description_of(*record).size);
        } else if (kind_ == VT_VARIANT) {
            fill_variant(value, *content_);
        } else {
            content_->vt = kind_;
            if (value.holds<Empty>()) return;
            if (kind_ & VT_ARRAY)
                content_->parray = safe_array_of(value.as_array(), static_cast<VARTYPE>(kind_ & VT_TYPEMASK), nullptr);
            else
                construct(kind_, value, &content_->llVal);
        }
    }
    ~Variable() {
        if (record_) info_->RecordDestroy(record_);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    VARTYPE kind() const { return kind_; }
    void* address() {
        if (kind_ == VT_RECORD) return record_;
        return kind_ == VT_VARIANT ? static_cast<void*>(content_.get()) : &content_->llVal;
    }
    /// The argument of an Invoke that refers to the variable.
    VARIANT reference() {
        VARIANT reference = reference_to(kind_, address());
        if (kind_ == VT_RECORD) reference.pRecInfo = info_;
        return reference;
    }
    /// The content itself, which stays this variable's.
    VARIANT by_value() { return *content_; }

private:
    VARTYPE kind_;
    Variant content_;
    IRecordInfo* info_ = nullptr;
    void* record_ = nullptr;
};

/// A call in the making: its arguments as typed variables.
class MemberCall {
public:
    MemberCall(IDispatch& object, std::size_t index, const Member& member, const std::vector<Value>& arguments)
        : object_(object), index_(index), member_(member) {
        for (std::size_t place = 0; place < member.parameter_count; ++place)
            variables_.push_back(std::make_unique<Variable>(member.parameter_slots[place].type, arguments[place]));
    }

    /// What the call left behind: the outcome, the result, and the arguments by reference.
    Texts by_invoke() {
        std::vector<VARIANT> given;
        for (std::size_t place = member_.parameter_count; place-- > 0;)
            given.push_back(member_.parameter_slots[place].is_by_reference() ? variables_[place]->reference()
                                                                             : variables_[place]->by_value());
        const bool put = member_.kind == MemberKind::property_put;
        DISPID put_name = DISPID_PROPERTYPUT;
        DISPPARAMS parameters{given.data(), put ? &put_name : nullptr, static_cast<UINT>(given.size()), put ? 1u : 0u};
        constexpr WORD flags[]{DISPATCH_METHOD, DISPATCH_PROPERTYGET, DISPATCH_PROPERTYPUT};
        Variant result;
        EXCEPINFO details{};
        const HRESULT code = object_.Invoke(member_.dispid, IID_NULL, 0, flags[static_cast<std::size_t>(member_.kind)],
                                            &parameters, result.get(), &details, nullptr);
        return texts(text_of_outcome(code, details), SUCCEEDED(code) ? result.get() : nullptr);
    }

    /// By the slot of the vtable that the type library names.
    Texts by_vtable() {
        std::vector<VARIANT> given;
        std::vector<VARTYPE> kinds;
        for (std::size_t place = 0; place < member_.parameter_count; ++place) {
            const bool reference = member_.parameter_slots[place].is_by_reference();
            given.push_back(reference ? pointer(variables_[place]->address()) : variables_[place]->by_value());
            kinds.push_back(reference ? static_cast<VARTYPE>(VT_PTR) : variables_[place]->kind());
        }
        Variable result(member_.result);
        SetErrorInfo(0, nullptr);
        const HRESULT code = call_slot(given, kinds, result.address());
        VARIANT reference = result.reference();
        return texts(text_of_outcome(code), SUCCEEDED(code) ? &reference : nullptr);
    }

    /// With a null pointer in the place of every reference and of the result.
    HRESULT with_null_pointers() {
        std::vector<VARIANT> given(member_.parameter_count);
        std::vector<VARTYPE> kinds;
        for (std::size_t place = 0; place < member_.parameter_count; ++place)
            kinds.push_back(member_.parameter_slots[place].is_by_reference() ? static_cast<VARTYPE>(VT_PTR)
                                                                             : variables_[place]->kind());
        return call_slot(given, kinds, nullptr);
    }

private:
    static VARIANT pointer(void* address) {
        VARIANT argument{};
        argument.byref = address;
        return argument;
    }

    HRESULT call_slot(std::vector<VARIANT>& given, std::vector<VARTYPE>& kinds, void* result) {
        if (member_.result.kind != TypeKind::none) {
            given.push_back(pointer(result));
            kinds.push_back(VT_PTR);
        }
        std::vector<VARIANT*> pointers;
        for (VARIANT& argument : given) pointers.push_back(&argument);
        Variant code;
        const ULONG_PTR offset = (common_slot_count + index_) * sizeof(void*);
        require(DispCallFunc(&object_, offset, CC_STDCALL, VT_ERROR, static_cast<UINT>(given.size()), kinds.data(),
                             pointers.data(), code.get()),
                "Calling a slot");
        return code->scode;
    }

    Texts texts(std::string outcome, const VARIANT* result) {
        Texts texts{std::move(outcome)};
        if (result && member_.result.kind != TypeKind::none) texts.push_back(text_of_variant(*result));
        for (std::size_t place = 0; place < member_.parameter_count; ++place)
            if (member_.parameter_slots[place].is_by_reference())
                texts.push_back(text_of_variant(variables_[place]->reference()));
        return texts;
    }

    IDispatch& object_;
    std::size_t index_;
    const Member& member_;
    std::vector<std::unique_ptr<Variable>> variables_;
};

std::vector<Value> fitting_values(EmbeddedWorld& world, const Member& member) {
    std::vector<Value> values;
    for (const Parameter& parameter : member.parameters()) values.push_back(fitting_value(world, member, parameter));
    return values;
}

class MembersOfClass : public testing::TestWithParam<std::string> {
protected:
    const ClassDescription& description = class_named(GetParam());
};

// Worlds of the same seed go through the same calls, one by each way.
TEST_P(MembersOfClass, DoTheSameByTheVtableByInvokeAndNatively) {
    ServerWorld invoked_world, slot_world;
    EmbeddedWorld world;
    const auto invoked = invoked_world.create(description), slot = slot_world.create(description);
    const Object native = object_of(world, description);
    int successes = 0;
    for (std::size_t index = 0; index < description.members.size(); ++index) {
        const Member& member = description.members[index];
        Texts by_invoke =
            MemberCall(*invoked.get(), index, member, fitting_values(invoked_world.native, member)).by_invoke();
        Texts by_slot = MemberCall(*slot.get(), index, member, fitting_values(slot_world.native, member)).by_vtable();
        for (std::string& text : by_invoke) text = invoked_world.without_folder(text);
        for (std::string& text : by_slot) text = slot_world.without_folder(text);
        EXPECT_EQ(by_invoke, by_slot) << member.name;
        Arguments arguments{fitting_values(world, member), {}};
        const Access access = member.kind == MemberKind::property_put ? Access::put : Access::call;
        try {
            const Value result = native->invoke(member.dispid, arguments, access);
            EXPECT_EQ(by_slot.front(), "Success") << member.name;
            const bool comparable = member.result.kind != TypeKind::none && !result.holds<Empty>();
            EXPECT_TRUE(!comparable || by_slot.at(1) == json_of(result).dump()) << member.name;
            ++successes;
        } catch (const Error& error) {
            EXPECT_NE(by_slot.front(), "Success") << member.name << ": " << error.description();
        }
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
        const HRESULT code =
            MemberCall(*object.get(), index, member, fitting_values(world.native, member)).with_null_pointers();
        EXPECT_TRUE(member.result.kind == TypeKind::none || code == E_POINTER) << member.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Classes, MembersOfClass,
                         testing::Values("TuneGlobals", "SpectrumParser", "CalMassList", "clsTuneParamsXML",
                                         "clsTunePrefsXML", "AbortHelper", "PeakList", "MassTimeCalibration"),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace korvane::automation
