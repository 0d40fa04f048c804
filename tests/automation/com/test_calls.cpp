// Calls as scripts and typed clients make them: references of every kind, named and missing arguments, errors, records.
#include <gtest/gtest.h>

#include "automation/com/error_mapping.h"
#include "automation/com/record_info.h"
#include "automation/com/variant_conversion.h"
#include "server_world.h"

namespace korvane::automation {
namespace {

VARIANT number(double value) {
    VARIANT variant{};
    variant.vt = VT_R8;
    variant.dblVal = value;
    return variant;
}

VARIANT left_out() {
    VARIANT variant{};
    variant.vt = VT_ERROR;
    variant.scode = DISP_E_PARAMNOTFOUND;
    return variant;
}

/// A matrix of one column, of doubles as VARIANTs or as they are.
SAFEARRAY* column(std::initializer_list<double> values, VARTYPE kind) {
    SAFEARRAYBOUND bounds[] = {{static_cast<ULONG>(values.size()), 0}, {1, 0}};
    SAFEARRAY* const array = SafeArrayCreate(kind, 2, bounds);
    LONG index[] = {0, 0};
    for (double value : values) {
        VARIANT element = number(value);
        SafeArrayPutElement(array, index, kind == VT_VARIANT ? static_cast<void*>(&element) : &value);
        ++index[0];
    }
    return array;
}

/// A call by name, what it left behind, and what is to be freed.
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

class Calls : public testing::Test {
protected:
    ServerWorld world;
    ComPointer<IDispatch> globals = world.create("TuneGlobals");
    ComPointer<IDispatch> parser = world.create("SpectrumParser");
    ComPointer<IDispatch> preferences = world.create("clsTunePrefsXML");
    Call globals_call{*globals.get()}, parser_call{*parser.get()}, preferences_call{*preferences.get()};
};

TEST_F(Calls, ScriptVariablesTakeTheDeclaredTypeAndTypedOnesKeepTheirs) {
    Variant masses, abundances, metadata;
    masses->vt = VT_BSTR;
    masses->bstrVal = SysAllocString(L"whatever was there before");
    float start = 0;
    BSTR cancelled = SysAllocString(L"not yet");
    ASSERT_EQ(parser_call(L"GetNewSpectrumAndVerifyDataIsPopulated",
                          {reference_to(VT_VARIANT, masses.get()), reference_to(VT_VARIANT, abundances.get()),
                           reference_to(VT_VARIANT, metadata.get()), reference_to(VT_R4, &start),
                           reference_to(VT_BSTR, &cancelled)}),
              S_OK)
        << parser_call.outcome;
    EXPECT_EQ(masses->vt, VT_ARRAY | VT_R8);
    EXPECT_EQ(abundances->vt & VT_ARRAY, VT_ARRAY);
    EXPECT_GT(start, 1000.0f) << "nanoseconds";
    EXPECT_EQ(text_of(cancelled), "False");
    SysFreeString(cancelled);
}

// Scripts can index arrays of VARIANTs alone, and cannot be given another in the place of one of fixed size.
TEST_F(Calls, ArraysOfAScriptStayArraysOfAScript) {
    SAFEARRAY* values = column({1, 2, 3}, VT_VARIANT);
    Variant means, deviations;
    means->vt = VT_ARRAY | VT_VARIANT;
    means->parray = SafeArrayCreateVector(VT_VARIANT, 0, 7);
    SAFEARRAY* fixed = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    fixed->fFeatures |= FADF_FIXEDSIZE;
    VARIANT inner = reference_to(VT_ARRAY | VT_VARIANT, &fixed);
    const std::vector<VARIANT> arguments{reference_to(VT_ARRAY | VT_VARIANT, &values),
                                         reference_to(VT_VARIANT, means.get()), reference_to(VT_VARIANT, &inner)};
    ASSERT_EQ(globals_call(L"CalculateMeanAndStdevForThisData", arguments), S_OK) << globals_call.outcome;
    EXPECT_EQ(text_of_variant(*means), "[2.0]");
    EXPECT_EQ(means->vt, VT_ARRAY | VT_VARIANT);
    EXPECT_EQ(text_of_variant(inner), "[1.0]");
    EXPECT_EQ(inner.vt, VT_BYREF | VT_ARRAY | VT_VARIANT);

    SafeArrayDestroy(values);
    values = column({4}, VT_VARIANT);
    EXPECT_EQ(globals_call(L"CalculateMeanAndStdevForThisData", arguments), DISP_E_EXCEPTION);
    EXPECT_EQ(globals_call.outcome.substr(0, 17), "error -2146828277") << "11, division by zero";
    EXPECT_EQ(text_of_variant(*means), "[2.0]") << "a failed call changed an argument";

    SafeArrayDestroy(values);
    fixed->fFeatures &= static_cast<USHORT>(~FADF_FIXEDSIZE);
    SafeArrayDestroy(fixed);
    fixed = SafeArrayCreateVector(VT_VARIANT, 0, 5);
    fixed->fFeatures |= FADF_FIXEDSIZE;
    values = column({1, 2, 3}, VT_R8);
    ASSERT_EQ(SafeArrayLock(fixed), S_OK);
    EXPECT_EQ(globals_call(L"CalculateMeanAndStdevForThisData",
                           {reference_to(VT_ARRAY | VT_R8, &values), arguments[1], arguments[2]}),
              DISP_E_EXCEPTION);
    EXPECT_EQ(globals_call.outcome.substr(0, 17), "error -2146828278") << "10, array fixed or locked";
    SafeArrayUnlock(fixed);
    SafeArrayDestroy(values);
    fixed->fFeatures &= static_cast<USHORT>(~FADF_FIXEDSIZE);
    SafeArrayDestroy(fixed);
}

TEST_F(Calls, ArgumentsGoByPositionByNameOrAreLeftOut) {
    Variant name, yes;
    name->vt = VT_BSTR;
    name->bstrVal = SysAllocString(L"LogSetpointTraffic");
    yes->vt = VT_BOOL;
    yes->boolVal = VARIANT_TRUE;
    for (const auto& [arguments, named] : std::vector<std::pair<std::vector<VARIANT>, std::vector<std::wstring>>>{
             {{*name}, {}},
             {{*name, left_out()}, {}},
             {{*name, *yes}, {}},
             {{*name, *yes}, {L"breopenxmlfile"}},
             {{*yes, *name}, {L"bReOpenXMLFile", L"PARAMNAME"}}}) {
        EXPECT_EQ(preferences_call(L"gettunepreference", arguments, named), S_OK) << preferences_call.outcome;
        EXPECT_EQ(preferences_call.text(), "\"No\"");
    }

    EXPECT_EQ(preferences_call(L"GetTunePreference", {*name, *yes, *yes}), DISP_E_BADPARAMCOUNT);
    EXPECT_EQ(preferences_call(L"GetTunePreference", {*yes}, {L"bReOpenXMLFile"}), DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(preferences_call(L"GetTunePreference", {*name, *yes}, {L"NoSuchName"}), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(preferences_call(L"NoSuchMember", {}), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(preferences_call(L"GetTunePreference", {*name, *name}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(preferences_call.wrong, 0u) << "place of the wrong argument, the last one is 0";

    DISPPARAMS none{};
    EXPECT_EQ(preferences->Invoke(9999, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
              DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(preferences->Invoke(1, IID_IDispatch, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
}

TEST_F(Calls, PropertiesAreReadAndLetWithEveryFlagThatClientsUse) {
    double segment = 3;
    for (WORD flags : {DISPATCH_PROPERTYPUT, DISPATCH_PROPERTYPUTREF, DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF}) {
        ++segment;
        EXPECT_EQ(globals_call(L"CurrentTimeSegment", {number(segment)}, {}, static_cast<WORD>(flags)), S_OK);
        for (WORD read : {DISPATCH_PROPERTYGET, DISPATCH_METHOD, DISPATCH_METHOD | DISPATCH_PROPERTYGET}) {
            EXPECT_EQ(globals_call(L"CurrentTimeSegment", {}, {}, static_cast<WORD>(read)), S_OK);
            EXPECT_EQ(globals_call.result->vt, VT_I4);
            EXPECT_EQ(globals_call.text(), std::to_string(static_cast<int>(segment)));
        }
    }
    EXPECT_EQ(globals_call(L"QuadType", {number(1)}, {}, DISPATCH_PROPERTYPUT), DISP_E_MEMBERNOTFOUND);
}

TEST_F(Calls, ErrorsArriveWithNumberSourceAndDescription) {
    Variant name;
    name->vt = VT_BSTR;
    name->bstrVal = SysAllocString(L"NoSuchPreference");
    EXPECT_EQ(preferences_call(L"GetTunePreference", {*name}), DISP_E_EXCEPTION);
    Error expected(0, {}, {});
    try {
        world.native.create("clsTunePrefsXML")->call("GetTunePreference", {"NoSuchPreference"});
        FAIL() << "no error";
    } catch (const Error& error) {
        expected = error;
    }
    EXPECT_EQ(expected.number(), -904);
    EXPECT_EQ(preferences_call.outcome,
              "error -904 from " + expected.source() + ": " + expected.description() + " ( 0)");

    // A caller who wants no details gets the code itself.
    wchar_t member[] = L"GetTunePreference";
    wchar_t* names = member;
    DISPID dispid = 0;
    ASSERT_EQ(preferences->GetIDsOfNames(IID_NULL, &names, 1, 0, &dispid), S_OK);
    DISPPARAMS parameters{name.get(), nullptr, 1, 0};
    EXPECT_EQ(preferences->Invoke(dispid, IID_NULL, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr), -904);

    ComPointer<ISupportErrorInfo> support;
    ASSERT_EQ(preferences->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(support.put())), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(guid_of(class_named("clsTunePrefsXML").interface_id)), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(guid_of(class_named("TuneGlobals").interface_id)), S_FALSE);
}

TEST_F(Calls, RecordsAreRecordsBothWays) {
    const auto seconds = number(0.25), mass = number(922.0098);
    ASSERT_EQ(parser_call(L"GetPeakAttributes", {number(294.938932), number(1)}), S_OK) << parser_call.outcome;
    EXPECT_EQ(parser_call.result->vt, VT_RECORD);
    EXPECT_EQ(parser_call.text().substr(0, 15), "{\"pkApexX\":294.");

    ASSERT_EQ(globals_call(L"getDefaultCalibrationCoeffs_nsec", {}), S_OK) << globals_call.outcome;
    const std::string coefficients = globals_call.text();
    Call second(*globals.get());
    ASSERT_EQ(second(L"convert_coefficients_nsec_to_usec", {*globals_call.result}), S_OK) << second.outcome;
    Call third(*globals.get());
    ASSERT_EQ(third(L"convert_coefficients_usec_to_nsec", {reference_to(VT_VARIANT, second.result.get())}), S_OK);
    EXPECT_EQ(third.text().substr(0, 40), coefficients.substr(0, 40)) << "there and back";
    EXPECT_EQ(second(L"convert_coefficients_nsec_to_usec", {*parser_call.result}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(second(L"convert_coefficients_nsec_to_usec", {mass}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(parser_call(L"GetPeakAttributes", {seconds, seconds, left_out(), left_out()}), DISP_E_EXCEPTION);
}

TEST(Errors, CarryTheirHelpBothWays) {
    const Error error(-904, "Source", "Description", ErrorKind::configuration, {"help.chm", 7});
    EXCEPINFO details{};
    const HRESULT code = report_exception(error, &details);
    const Error back = error_of_call(code, details, "A call");
    EXPECT_EQ(back.number(), -904);
    EXPECT_EQ(back.source() + back.description(), "SourceDescription");
    EXPECT_EQ(back.help(), error.help());
    EXPECT_EQ(text_of_outcome(leave_error_object(error, GUID_NULL)),
              "error -904 from Source: Description (help.chm 7)");
}

/// Somebody else's object.
class Stranger final : public IDispatch {
public:
    virtual ~Stranger() = default;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** result) override {
        const bool known = IsEqualGUID(wanted, IID_IUnknown) || IsEqualGUID(wanted, IID_IDispatch);
        *result = known ? this : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return DISP_E_UNKNOWNNAME;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return DISP_E_MEMBERNOTFOUND;
    }
    ULONG references = 1;
};

TEST_F(Calls, ObjectsAreCountedAndKeepTheirIdentity) {
    ASSERT_EQ(globals_call(L"GetCurrentCalibrationObjFromDD", {}), S_OK) << globals_call.outcome;
    ASSERT_EQ(globals_call.text().substr(0, 30), "{\"class\":\"MassTimeCalibration\"");
    IDispatch& calibration = *globals_call.result->pdispVal;
    ComPointer<IUnknown> one, other;
    calibration.QueryInterface(IID_IUnknown, reinterpret_cast<void**>(one.put()));
    calibration.QueryInterface(IID_IUnknown, reinterpret_cast<void**>(other.put()));
    EXPECT_EQ(one.get(), other.get());
    void* unknown = &unknown;
    EXPECT_EQ(calibration.QueryInterface(IID_IClassFactory, &unknown), E_NOINTERFACE);
    EXPECT_EQ(unknown, nullptr);

    Call write(*globals.get());
    EXPECT_EQ(write(L"WriteThisCalibrationObjToDD", {*globals_call.result}), S_OK) << write.outcome;

    // A foreign object in the place of a calibration is refused, and let go.
    Stranger stranger;
    VARIANT foreign{};
    foreign.vt = VT_DISPATCH;
    foreign.pdispVal = &stranger;
    EXPECT_EQ(write(L"WriteThisCalibrationObjToDD", {foreign}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(stranger.references, 1u);
    foreign.pdispVal = nullptr;
    EXPECT_EQ(write(L"WriteThisCalibrationObjToDD", {foreign}), DISP_E_EXCEPTION);
    EXPECT_EQ(write.outcome.substr(0, 17), "error -2146828197") << "91, object not set";
}

TEST(ServerObjects, AreAllGoneWhenTheirCallersLetGo) {
    {
        ServerWorld world;
        const auto parser = world.create("SpectrumParser");
        Call lists(*parser.get());
        ASSERT_EQ(lists(L"GetPeakListsForCalibrantMasses", {}), S_OK) << lists.outcome;
        EXPECT_GT(ModuleUse::count(), 1);
        const auto copy = parser;
        EXPECT_EQ(copy->AddRef(), 3u);
        EXPECT_EQ(copy->Release(), 2u);
    }
    EXPECT_EQ(ModuleUse::count(), 0);
}

}  // namespace
}  // namespace korvane::automation
