// The simulated instrument behind Windows objects, in this process and with a virtual clock; what calls leave as text.
#pragma once

#include "argument_values.h"
#include "automation/com/com_object.h"
#include "automation/json_values.h"

namespace korvane::automation {

using Texts = std::vector<std::string>;

class ServerWorld {
public:
    ServerWorld() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
    ~ServerWorld() { CoUninitialize(); }

    /// An object of any class, those that are not creatable as a member returns them.
    ComPointer<IDispatch> create(const ClassDescription& description) {
        return owned(make_com_object(std::static_pointer_cast<NativeObject>(object_of(native, description))));
    }
    ComPointer<IDispatch> create(const std::string& class_name) { return create(*find_class(class_name)); }

    EmbeddedWorld native;
};

/// The text without the path of the world's folder.
inline std::string without_folder(const EmbeddedWorld& world, std::string text) {
    const std::string folder = world.base().parent_path().string();
    std::string quoted;  // as texts in quotes have it
    for (const char character : folder) quoted += character == '\\' ? "\\\\" : std::string(1, character);
    for (const std::string& form : {quoted, folder})
        for (std::size_t place; (place = text.find(form)) != std::string::npos;)
            text.replace(place, form.size(), "FOLDER");
    return text;
}

/// The content as JSON; a reference is followed.
inline std::string text_of_variant(const VARIANT& variant) {
    return json_of(value_of_variant(variant)).dump();
}

/// "Success", or number, source, description and help that an Invoke reported; frees them.
inline std::string text_of_outcome(HRESULT code, EXCEPINFO& details) {
    if (code == S_OK) return "Success";
    if (code != DISP_E_EXCEPTION) return "code " + std::to_string(code);
    std::string text = "error " + std::to_string(details.scode) + " from " + text_of(details.bstrSource) + ": " +
                       text_of(details.bstrDescription) + " (" + text_of(details.bstrHelpFile) + " " +
                       std::to_string(details.dwHelpContext) + ")";
    SysFreeString(details.bstrSource);
    SysFreeString(details.bstrDescription);
    SysFreeString(details.bstrHelpFile);
    details = {};
    return text;
}

/// The same for a call of the vtable, from the thread's error object.
inline std::string text_of_outcome(HRESULT code) {
    if (code == S_OK) return "Success";
    ComPointer<IErrorInfo> info;
    if (GetErrorInfo(0, info.GetAddressOf()) != S_OK)
        return "code " + std::to_string(code) + " without an error object";
    EXCEPINFO details{};
    details.scode = code;
    info->GetSource(&details.bstrSource);
    info->GetDescription(&details.bstrDescription);
    info->GetHelpFile(&details.bstrHelpFile);
    info->GetHelpContext(&details.dwHelpContext);
    return text_of_outcome(DISP_E_EXCEPTION, details);
}

/// Calls by name through IDispatch; what the last one left behind.
class Call {
public:
    explicit Call(IDispatch& object) : object_(object) {}

    /// Arguments in the order of the parameters; named ones after them.
    HRESULT operator()(std::wstring name, std::vector<VARIANT> arguments, std::vector<std::wstring> named = {},
                       WORD flags = DISPATCH_METHOD | DISPATCH_PROPERTYGET) {
        std::vector<wchar_t*> names{name.data()};
        for (std::wstring& word : named) names.push_back(word.data());
        std::vector<DISPID> dispids(names.size());
        const HRESULT known =
            object_.GetIDsOfNames(IID_NULL, names.data(), static_cast<UINT>(names.size()), 0, dispids.data());
        if (FAILED(known)) return known;
        std::reverse(arguments.begin(), arguments.end());
        std::vector<DISPID> names_of_arguments(dispids.rbegin(), dispids.rend() - 1);
        if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) names_of_arguments = {DISPID_PROPERTYPUT};
        DISPPARAMS parameters{arguments.data(), names_of_arguments.data(), static_cast<UINT>(arguments.size()),
                              static_cast<UINT>(names_of_arguments.size())};
        VariantClear(result.get());
        EXCEPINFO details{};
        const HRESULT code =
            object_.Invoke(dispids[0], IID_NULL, 0, flags, &parameters, result.get(), &details, &wrong);
        outcome = text_of_outcome(code, details);
        return code;
    }
    std::string text() { return text_of_variant(*result); }

    Variant result;
    std::string outcome;
    UINT wrong = 99;

private:
    IDispatch& object_;
};

}  // namespace korvane::automation
