// Every member by the vtable, by Invoke and natively: the same result, the same arguments, the same error.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "automation/com/com_object.h"
#include "server_world.h"

namespace korvane::automation {
namespace {

/// A variable of a declared type, as a client written in a typed language has it.
class Variable {
public:
    explicit Variable(const DeclaredType& type, const Value& value = {}) : kind_(type.description().variant_type) {
        content_->vt = kind_;
        if (kind_ == VT_RECORD) {
            const RecordDescription& record = *find_record(type.name);
            const bool given = value.holds<Record>();
            fill_variant(given ? value : Value(make_record(record)), *content_);
        } else if (kind_ == VT_VARIANT) {
            content_->vt = VT_EMPTY;
            fill_variant(value, *content_);
        } else if (kind_ & VT_ARRAY) {
            const auto element = static_cast<VARTYPE>(kind_ & VT_TYPEMASK);
            content_->parray = value.holds<Empty>() ? nullptr : safe_array_of(value.as_array(), element, nullptr);
        } else if (!value.holds<Empty>()) {
            construct(kind_, value, &content_->llVal);
        }
    }

    VARTYPE kind() const { return kind_; }
    void* address() {
        if (kind_ == VT_RECORD) return content_->pvRecord;
        return kind_ == VT_VARIANT ? static_cast<void*>(content_.get()) : &content_->llVal;
    }
    /// The argument of an Invoke that refers to the variable.
    VARIANT reference() {
        VARIANT reference = reference_to(kind_, address());
        if (kind_ == VT_RECORD) reference.pRecInfo = content_->pRecInfo;
        return reference;
    }
    /// The content itself, which stays this variable's.
    VARIANT by_value() { return *content_; }

private:
    VARTYPE kind_;
    Variant content_;
};

/// A call by the slot of the vtable that the type library names, with its arguments as typed variables.
class SlotCall {
public:
    SlotCall(IDispatch& object, std::size_t index, const Member& member, const std::vector<Value>& arguments)
        : object_(object), index_(index), member_(member) {
        for (std::size_t place = 0; place < member.parameter_count; ++place)
            variables_.push_back(std::make_unique<Variable>(member.parameter_slots[place].type, arguments[place]));
    }

    /// What the call left behind: the outcome, the result, and the arguments that the member changes.
    Texts texts() {
        Variable result(member_.result);
        SetErrorInfo(0, nullptr);
        const HRESULT code = call(true, result.address());
        Texts texts{text_of_outcome(code)};
        if (SUCCEEDED(code) && member_.result.kind != TypeKind::none)
            texts.push_back(text_of_variant(result.reference()));
        for (std::size_t place = 0; place < member_.parameter_count; ++place)
            if (member_.parameter_slots[place].changes)
                texts.push_back(text_of_variant(variables_[place]->reference()));
        return texts;
    }
    /// With a null pointer in the place of every reference and of the result.
    HRESULT with_null_pointers() { return call(false, nullptr); }

private:
    HRESULT call(bool with_references, void* result) {
        std::vector<VARIANT> given;
        std::vector<VARTYPE> kinds;
        const auto give_pointer = [&](void* address) {
            given.emplace_back().byref = address;
            kinds.push_back(VT_PTR);
        };
        for (std::size_t place = 0; place < member_.parameter_count; ++place) {
            Variable& variable = *variables_[place];
            if (member_.parameter_slots[place].is_by_reference()) {
                give_pointer(with_references ? variable.address() : nullptr);
            } else {
                given.push_back(variable.by_value());
                kinds.push_back(variable.kind());
            }
        }
        if (member_.result.kind != TypeKind::none) give_pointer(result);
        std::vector<VARIANT*> pointers;
        for (VARIANT& argument : given) pointers.push_back(&argument);
        Variant code;
        const ULONG_PTR offset = (common_slot_count + index_) * sizeof(void*);
        require(DispCallFunc(&object_, offset, CC_STDCALL, VT_ERROR, static_cast<UINT>(given.size()), kinds.data(),
                             pointers.data(), code.get()),
                "Calling a slot");
        return code->scode;
    }

    IDispatch& object_;
    std::size_t index_;
    const Member& member_;
    std::vector<std::unique_ptr<Variable>> variables_;
};

// Worlds of the same seed go through the same calls, one by each way.
TEST(Members, DoTheSameByTheVtableAndNatively) {
    for (const ClassDescription& description : class_descriptions()) {
        ServerWorld slot_world;
        EmbeddedWorld world;
        const auto slot = slot_world.create(description);
        const Object native = object_of(world, description);
        int successes = 0;
        for (std::size_t index = 0; index < description.members.size(); ++index) {
            const Member& member = description.members[index];
            const Texts by_slot =
                SlotCall(*slot.Get(), index, member, fitting_values(slot_world.native, member)).texts();
            Arguments arguments{fitting_values(world, member), {}};
            Texts expected;
            try {
                const Value result = native->invoke(member.dispid, arguments, member.access);
                expected.push_back("Success");
                if (member.result.kind != TypeKind::none) expected.push_back(json_of(result).dump());
                ++successes;
            } catch (const Error& error) {
                expected.push_back(fmt::format("error {} from {}: {} ( 0)", code_of_number(error.number()),
                                               error.source(), error.description()));
            }
            for (std::size_t place = 0; place < member.parameter_count; ++place)
                if (member.parameter_slots[place].changes)
                    expected.push_back(json_of(arguments.positional[place]).dump());
            ASSERT_EQ(by_slot.size(), expected.size()) << member.name;
            // An empty array is not a null one, nor Empty, in every type.
            for (std::size_t text = 0; text < expected.size() && expected[text] != "null"; ++text)
                EXPECT_EQ(without_folder(slot_world.native, by_slot[text]), without_folder(world, expected[text]))
                    << member.name;
        }
        EXPECT_GE(3 * successes, static_cast<int>(description.members.size())) << "hardly anything was compared";
    }
}

TEST(Members, SurviveNullPointersInEveryPlace) {
    for (const ClassDescription& description : class_descriptions()) {
        ServerWorld world;
        const auto object = world.create(description);
        ImpatientUser user(world.native);
        for (std::size_t index = 0; index < description.members.size(); ++index) {
            const Member& member = description.members[index];
            user.calm_down();
            const HRESULT code =
                SlotCall(*object.Get(), index, member, fitting_values(world.native, member)).with_null_pointers();
            EXPECT_TRUE(member.result.kind == TypeKind::none || code == E_POINTER) << member.name;
        }
    }
}

}  // namespace
}  // namespace korvane::automation
