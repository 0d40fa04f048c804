// Calls as scripts and typed clients make them: references of every kind, named and missing arguments, errors, records.
#include <gtest/gtest.h>

#include <list>

#include "foreign_object.h"
#include "server_world.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

/// Arguments that live as long as the test.
class Variants {
public:
    VARIANT operator()(const Value& value) {
        Variant& made = made_.emplace_back();
        fill_variant(value, *made);
        return *made;
    }

private:
    std::list<Variant> made_;
};

/// A matrix of one column, of doubles as VARIANTs or as they are.
SAFEARRAY* column(std::initializer_list<double> values, VARTYPE kind) {
    const Array array({{0, values.size()}, {0, 1}}, std::make_shared<const std::vector<double>>(values));
    return safe_array_of(array, kind, nullptr);
}

class Calls : public testing::Test {
protected:
    ServerWorld world;
    Variants value;
    ComPointer<IDispatch> globals = world.create("TuneGlobals");
    ComPointer<IDispatch> parser = world.create("SpectrumParser");
    ComPointer<IDispatch> preferences = world.create("clsTunePrefsXML");
    Call globals_call{*globals.Get()}, parser_call{*parser.Get()}, preferences_call{*preferences.Get()};
};

TEST_F(Calls, TypedVariablesKeepTheirTypes) {
    Variant others;
    const VARIANT other = reference_to(VT_VARIANT, others.get());
    float start = 0;
    BSTR cancelled = SysAllocString(L"not yet");
    ASSERT_EQ(parser_call(L"GetNewSpectrumAndVerifyDataIsPopulated",
                          {other, other, other, reference_to(VT_R4, &start), reference_to(VT_BSTR, &cancelled)}),
              S_OK)
        << parser_call.outcome;
    EXPECT_GT(start, 1000.0f) << "nanoseconds";
    EXPECT_EQ(text_of(cancelled), "False");
    SysFreeString(cancelled);
}

// Scripts can index arrays of VARIANTs alone, and cannot be given another in the place of one of fixed size.
TEST_F(Calls, ArraysOfAScriptStayArraysOfAScript) {
    SAFEARRAY* values = column({1, 2, 3}, VT_VARIANT);
    Variant means;
    means->vt = VT_ARRAY | VT_VARIANT;
    means->parray = SafeArrayCreateVector(VT_VARIANT, 0, 7);
    SAFEARRAY* fixed = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    const auto fix = [&](bool on) {
        fixed->fFeatures = static_cast<USHORT>((fixed->fFeatures & ~FADF_FIXEDSIZE) | on * FADF_FIXEDSIZE);
    };
    fix(true);
    VARIANT inner = reference_to(VT_ARRAY | VT_VARIANT, &fixed);
    const auto outcome = [&] {
        globals_call(L"CalculateMeanAndStdevForThisData",
                     {reference_to(VT_ARRAY | VT_VARIANT, &values), reference_to(VT_VARIANT, means.get()),
                      reference_to(VT_VARIANT, &inner)});
        return globals_call.outcome.substr(0, 17);
    };
    EXPECT_EQ(outcome(), "Success");
    EXPECT_EQ(text_of_variant(*means) + text_of_variant(inner), "[2.0][1.0]");
    EXPECT_EQ(means->vt, VT_ARRAY | VT_VARIANT);
    EXPECT_EQ(inner.vt, VT_BYREF | VT_ARRAY | VT_VARIANT);

    // A longer one that is locked cannot be replaced.
    fix(false);
    SafeArrayDestroy(fixed);
    fixed = SafeArrayCreateVector(VT_VARIANT, 0, 5);
    fix(true);
    ASSERT_EQ(SafeArrayLock(fixed), S_OK);
    EXPECT_EQ(outcome(), "error -2146828278") << "10, array fixed or locked";
    SafeArrayUnlock(fixed);
    fix(false);
    SafeArrayDestroy(fixed);
    SafeArrayDestroy(values);
}

TEST_F(Calls, ArgumentsGoByPositionByNameOrAreLeftOut) {
    const VARIANT name = value("LogSetpointTraffic"), yes = value(true), left_out = value(Missing{});
    for (const auto& [arguments, named] : std::vector<std::pair<std::vector<VARIANT>, std::vector<std::wstring>>>{
             {{name}, {}},
             {{name, left_out}, {}},
             {{name, yes}, {}},
             {{name, yes}, {L"breopenxmlfile"}},
             {{yes, name}, {L"bReOpenXMLFile", L"PARAMNAME"}}}) {
        EXPECT_EQ(preferences_call(L"gettunepreference", arguments, named), S_OK) << preferences_call.outcome;
        EXPECT_EQ(preferences_call.text(), "\"No\"");
    }
    EXPECT_EQ(preferences_call(L"GetTunePreference", {yes}, {L"bReOpenXMLFile"}), DISP_E_PARAMNOTOPTIONAL);
    EXPECT_EQ(preferences_call(L"GetTunePreference", {name, yes}, {L"NoSuchName"}), DISP_E_UNKNOWNNAME);
    EXPECT_EQ(preferences_call(L"GetTunePreference", {name, name}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(preferences_call.wrong, 0u) << "place of the wrong argument, the last one is 0";

    // With nobody to take the details, the code itself tells.
    DISPPARAMS none{};
    const auto invoke = [&](DISPID dispid, REFIID reserved, DISPPARAMS& parameters) {
        return preferences->Invoke(dispid, reserved, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(invoke(9999, IID_NULL, none), DISP_E_MEMBERNOTFOUND);
    EXPECT_EQ(invoke(1, IID_IDispatch, none), DISP_E_UNKNOWNINTERFACE);
    VARIANT unknown = value("NoSuchPreference");
    DISPPARAMS one{&unknown, nullptr, 1, 0};
    EXPECT_EQ(invoke(1, IID_NULL, one), -904);
}

TEST_F(Calls, RecordsAreRecordsBothWays) {
    ASSERT_EQ(parser_call(L"GetPeakAttributes", {value(294.938932), value(1.0)}), S_OK) << parser_call.outcome;
    EXPECT_EQ(parser_call.text().substr(0, 15), "{\"pkApexX\":294.");

    ASSERT_EQ(globals_call(L"getDefaultCalibrationCoeffs_nsec", {}), S_OK) << globals_call.outcome;
    const std::string coefficients = globals_call.text();
    Call second(*globals.Get()), third(*globals.Get());
    ASSERT_EQ(second(L"convert_coefficients_nsec_to_usec", {*globals_call.result}), S_OK) << second.outcome;
    ASSERT_EQ(third(L"convert_coefficients_usec_to_nsec", {reference_to(VT_VARIANT, second.result.get())}), S_OK);
    EXPECT_EQ(third.text().substr(0, 40), coefficients.substr(0, 40)) << "there and back";
    EXPECT_EQ(second(L"convert_coefficients_nsec_to_usec", {*parser_call.result}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(second(L"convert_coefficients_nsec_to_usec", {value(922.0)}), DISP_E_TYPEMISMATCH);
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

/// Written in a typed language: by reference it takes nothing but the types it declares.
class Stranger final : public ForeignObject {
public:
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS* given, VARIANT*, EXCEPINFO*,
                                     UINT*) override {
        const std::vector<VARTYPE> declared{VT_VARIANT, VT_BOOL, VT_R8, VT_I4, VT_BSTR};  // the last one first
        for (UINT place = 0; place < given->cArgs; ++place)
            if (given->rgvarg[place].vt != (declared.at(place) | VT_BYREF)) return DISP_E_TYPEMISMATCH;
        *given->rgvarg[3].plVal += 1;
        SysReAllocString(given->rgvarg[4].pbstrVal, L"changed");
        return S_OK;
    }
};

TEST_F(Calls, ForeignObjectsGetReferencesOfTheirTypes) {
    const auto stranger = owned(new Stranger);
    {
        DispatchObject object(ComPointer<IDispatch>(stranger.Get()));
        Arguments arguments{{"text", 5, 2.5, true, Empty{}}, {}};
        object.invoke(1, arguments, Access::call);
        EXPECT_EQ(arguments.positional, (std::vector<Value>{"changed", 6, 2.5, true, Empty{}}));
    }
    // In the place of a calibration it is refused, and let go.
    VARIANT foreign{};
    foreign.vt = VT_DISPATCH;
    foreign.pdispVal = stranger.Get();
    EXPECT_EQ(globals_call(L"WriteThisCalibrationObjToDD", {foreign}), DISP_E_TYPEMISMATCH);
    EXPECT_EQ(stranger->references, 1u);
    foreign.pdispVal = nullptr;
    EXPECT_EQ(globals_call(L"WriteThisCalibrationObjToDD", {foreign}), DISP_E_EXCEPTION);
    EXPECT_EQ(globals_call.outcome.substr(0, 17), "error -2146828197") << "91, object not set";
}

TEST_F(Calls, ObjectsHaveTheirInterfacesAndNoOthers) {
    ASSERT_EQ(globals_call(L"GetCurrentCalibrationObjFromDD", {}), S_OK) << globals_call.outcome;
    ASSERT_EQ(globals_call.text().substr(0, 30), "{\"class\":\"MassTimeCalibration\"");
    IDispatch& calibration = *globals_call.result->pdispVal;
    void* unknown = &unknown;
    EXPECT_EQ(calibration.QueryInterface(IID_IClassFactory, &unknown), E_NOINTERFACE);
    EXPECT_EQ(unknown, nullptr);

    ComPointer<ISupportErrorInfo> support;
    ASSERT_EQ(preferences->QueryInterface(IID_ISupportErrorInfo, reinterpret_cast<void**>(support.GetAddressOf())),
              S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(guid_of(find_class("clsTunePrefsXML")->interface_id)), S_OK);
    EXPECT_EQ(support->InterfaceSupportsErrorInfo(guid_of(find_class("TuneGlobals")->interface_id)), S_FALSE);
}

}  // namespace
}  // namespace korvane::automation
