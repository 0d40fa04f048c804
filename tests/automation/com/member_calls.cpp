#include "member_calls.h"

#include <cstring>
#include <memory>

#include "automation/com/com_object.h"
#include "automation/com/record_info.h"
#include "automation/com/safe_arrays.h"
#include "automation/com/variant_conversion.h"
#include "automation/records.h"
#include "variant_text.h"

namespace korvane::automation {

namespace {

VARTYPE variant_kind(const DeclaredType& type) {
    switch (type.kind) {
        case TypeKind::variant:
            return VT_VARIANT;
        case TypeKind::boolean:
            return VT_BOOL;
        case TypeKind::long_integer:
        case TypeKind::enumeration:
            return VT_I4;
        case TypeKind::single:
            return VT_R4;
        case TypeKind::real:
            return VT_R8;
        case TypeKind::text:
            return VT_BSTR;
        case TypeKind::object:
            return VT_DISPATCH;
        case TypeKind::record:
            return VT_RECORD;
        case TypeKind::real_array:
            return VT_ARRAY | VT_R8;
        case TypeKind::text_array:
            return VT_ARRAY | VT_BSTR;
        case TypeKind::none:
            break;
    }
    return VT_EMPTY;
}

/// A variable of a declared type, as a client written in a typed language has it.
class Variable {
public:
    explicit Variable(const DeclaredType& type) : type_(type), kind_(variant_kind(type)) {
        if (kind_ == VT_RECORD) {
            info_ = record_info_of(*find_record(type.name));
            record_ = info_->RecordCreate();
        }
    }
    Variable(const DeclaredType& type, const Value& value) : Variable(type) {
        if (kind_ == VT_RECORD) {
            const auto* const record = value.get_if<Record>();
            if (record) std::memcpy(record_, data_of(*record), find_record(type.name)->size);
        } else if (kind_ == VT_VARIANT) {
            fill_variant(value, *content_);
        } else if (kind_ & VT_ARRAY) {
            content_->vt = kind_;
            content_->parray = safe_array_of(value.as_array(), static_cast<VARTYPE>(kind_ & VT_TYPEMASK), nullptr);
        } else {
            Variant any;
            fill_variant(value, *any);
            content_->vt = kind_;
            if (any->vt != VT_EMPTY) require(VariantChangeType(content_.get(), any.get(), 0, kind_), "Converting");
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
        VARIANT reference;
        VariantInit(&reference);
        reference.vt =
            kind_ == VT_RECORD ? static_cast<VARTYPE>(VT_RECORD | VT_BYREF) : static_cast<VARTYPE>(kind_ | VT_BYREF);
        reference.byref = address();
        if (kind_ == VT_RECORD) reference.pRecInfo = info_;
        return reference;
    }
    /// The content itself, which stays this variable's.
    VARIANT by_value() const { return *const_cast<Variable*>(this)->content_; }

    std::string text() { return text_of_variant(reference()); }

private:
    DeclaredType type_;
    VARTYPE kind_;
    Variant content_;
    IRecordInfo* info_ = nullptr;
    void* record_ = nullptr;
};

using Variables = std::vector<std::unique_ptr<Variable>>;

Variables variables_for(const Member& member, const std::vector<Value>& arguments) {
    Variables variables;
    for (std::size_t place = 0; place < member.parameter_count; ++place)
        variables.push_back(std::make_unique<Variable>(member.parameter_slots[place].type, arguments[place]));
    return variables;
}

void add_references(const Member& member, const Variables& variables, CallTexts& texts) {
    for (std::size_t place = 0; place < member.parameter_count; ++place)
        if (member.parameter_slots[place].is_by_reference())
            texts.push_back(std::string(member.parameter_slots[place].name) + " = " + variables[place]->text());
}

ULONG_PTR vtable_offset(IDispatch& object, std::size_t index) {
    ComPointer<ITypeInfo> dispatch_view, view;
    HREFTYPE reference = 0;
    require(object.GetTypeInfo(0, 0, dispatch_view.put()), "Asking for the type");
    require(dispatch_view->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), "Asking for the interface");
    require(dispatch_view->GetRefTypeInfo(reference, view.put()), "Asking for the interface");
    FUNCDESC* function = nullptr;
    require(view->GetFuncDesc(static_cast<UINT>(index), &function), "Asking for a function");
    const auto offset = static_cast<ULONG_PTR>(function->oVft);
    view->ReleaseFuncDesc(function);
    return offset;
}

/// An argument as it lies on the stack.
struct StackArgument {
    VARTYPE kind;
    VARIANT content;
};

HRESULT call_slot(IDispatch& object, ULONG_PTR offset, std::vector<StackArgument>& arguments) {
    std::vector<VARTYPE> kinds;
    std::vector<VARIANT*> pointers;
    for (StackArgument& argument : arguments) {
        kinds.push_back(argument.kind);
        pointers.push_back(&argument.content);
    }
    Variant code;
    require(DispCallFunc(&object, offset, CC_STDCALL, VT_ERROR, static_cast<UINT>(arguments.size()), kinds.data(),
                         pointers.data(), code.get()),
            "Calling a slot");
    return code->scode;
}

StackArgument pointer_argument(void* pointer) {
    StackArgument argument{VT_PTR, {}};
    argument.content.byref = pointer;
    return argument;
}

}  // namespace

CallTexts call_by_invoke(IDispatch& object, const Member& member, const std::vector<Value>& arguments) {
    const Variables variables = variables_for(member, arguments);
    std::vector<VARIANT> given;
    for (std::size_t place = member.parameter_count; place-- > 0;)
        given.push_back(member.parameter_slots[place].is_by_reference() ? variables[place]->reference()
                                                                        : variables[place]->by_value());
    DISPID put_name = DISPID_PROPERTYPUT;
    DISPPARAMS parameters{given.data(), nullptr, static_cast<UINT>(given.size()), 0};
    WORD flags = member.kind == MemberKind::method ? DISPATCH_METHOD : DISPATCH_PROPERTYGET;
    if (member.kind == MemberKind::property_put) {
        flags = DISPATCH_PROPERTYPUT;
        parameters.rgdispidNamedArgs = &put_name;
        parameters.cNamedArgs = 1;
    }
    Variant result;
    EXCEPINFO details{};
    UINT wrong = 0;
    const HRESULT code = object.Invoke(member.dispid, IID_NULL, 0, flags, &parameters, result.get(), &details, &wrong);
    CallTexts texts{text_of_outcome(code, details)};
    if (SUCCEEDED(code) && member.result.kind != TypeKind::none) texts.push_back(text_of_variant(*result));
    add_references(member, variables, texts);
    return texts;
}

CallTexts call_by_vtable(IDispatch& object, std::size_t index, const Member& member,
                         const std::vector<Value>& arguments) {
    const Variables variables = variables_for(member, arguments);
    std::vector<StackArgument> given;
    for (std::size_t place = 0; place < member.parameter_count; ++place)
        given.push_back(member.parameter_slots[place].is_by_reference()
                            ? pointer_argument(variables[place]->address())
                            : StackArgument{variables[place]->kind(), variables[place]->by_value()});
    std::unique_ptr<Variable> result;
    if (member.result.kind != TypeKind::none) {
        result = std::make_unique<Variable>(member.result);
        given.push_back(pointer_argument(result->address()));
    }
    SetErrorInfo(0, nullptr);
    const HRESULT code = call_slot(object, vtable_offset(object, index), given);
    CallTexts texts{text_of_outcome(code)};
    if (SUCCEEDED(code) && result) texts.push_back(result->text());
    add_references(member, variables, texts);
    return texts;
}

HRESULT call_with_null_pointers(IDispatch& object, std::size_t index, const Member& member) {
    std::vector<StackArgument> given;
    for (const Parameter& parameter : member.parameters())
        given.push_back(parameter.is_by_reference() ? pointer_argument(nullptr)
                                                    : StackArgument{variant_kind(parameter.type), {}});
    if (member.result.kind != TypeKind::none) given.push_back(pointer_argument(nullptr));
    return call_slot(object, vtable_offset(object, index), given);
}

}  // namespace korvane::automation
