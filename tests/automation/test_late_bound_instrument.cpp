// An instrument layer of automation objects: the simulator, offered late bound and taken back the same way; sound, or
// with one misbehaviour at a time of one member: which checks of a layer fail then stands in faults.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "argument_values.h"
#include "korvane/conformance.h"
#include "korvane/embedded_parts.h"
#include "korvane/forwarding.h"
#include "support/raised.h"

namespace korvane::automation {
namespace {

/// What a call by name, "SetpointTable.Value", gives in the place of what it gives by itself.
using Bend = std::function<Value(const std::string& call, Arguments&, const std::function<Value()>& sound)>;

/// Somebody else's object: nothing of it is known but its members. Objects that come out of it are strangers too.
class Stranger final : public LateBound {
public:
    Stranger(Object object, Bend bend) : object_(std::move(object)), bend_(std::move(bend)) {}

    std::string class_name() const override { return "Stranger"; }
    std::int32_t dispid_of(std::string_view member) const override { return object_->dispid_of(member); }
    Value invoke(std::int32_t dispid, Arguments& arguments, Access access) override {
        for (Value& argument : arguments.positional) argument = unmask(argument);
        const auto sound = [&] { return object_->invoke(dispid, arguments, access); };
        const ClassDescription& known = static_cast<const NativeObject&>(*object_).description();
        const std::string call = object_->class_name() + "." + std::string(known.find(dispid, access)->name);
        Value result = mask(bend_ ? bend_(call, arguments, sound) : sound(), bend_);
        for (Value& argument : arguments.positional) argument = mask(argument, bend_);
        return result;
    }

    static Value mask(const Value& value, const Bend& bend = {}) {
        const auto* object = value.get_if<Object>();
        return object && *object ? Value(Object(std::make_shared<Stranger>(*object, bend))) : value;
    }

private:
    static Value unmask(const Value& value) {
        const auto* object = value.get_if<Object>();
        const auto* stranger = object ? dynamic_cast<const Stranger*>(object->get()) : nullptr;
        return stranger ? Value(stranger->object_) : value;
    }

    Object object_;
    Bend bend_;
};

TEST(LateBoundInstrument, HasItsObjectsComeBackAsThemselves) {
    EmbeddedWorld world;
    const Object layer = make_object<InstrumentLayer>(world.platform().instrument);
    Platform outside = world.platform();
    outside.instrument = make_late_bound_layer([layer] { return Stranger::mask(layer).as_object(); });
    const Object globals = create_object("Korvane.TuneGlobals", outside);
    const Object calibration = globals->call("GetCurrentCalibrationObjFromDD").as_object();
    EXPECT_EQ(calibration->class_name(), "Stranger");
    globals->call("SetNewCalibrationWithTheseAAndt0Values_usec", {0.45, 0.021});
    globals->call("WriteThisCalibrationObjToDD", {calibration});
    const Object list = create_object("Korvane.SpectrumParser", outside)
                            ->call("GetPeakListOfOnlyThisOneMass", {158.964, 1.0})
                            .as_object();
    EXPECT_EQ(list->class_name(), "Stranger");
    EXPECT_NEAR(list->call("GetPeakValue", {0, "pkCentroid"}).as_double(), 158.964, 0.2);

    const Object wrong = Stranger::mask(world.create("AbortHelper")).as_object();
    const std::string refusal = raised([&] { globals->call("WriteThisCalibrationObjToDD", {wrong}); });
    EXPECT_EQ(refusal,
              "13|Korvane|Type mismatch: an object Stranger is no MassTimeCalibration: it has no MassFromTime "
              "(pMTCalcObj[an object Stranger] of WriteThisCalibrationObjToDD)");
}

std::string bent_call, kind;          // of the misbehaviour
bool has_bent = false;                // whether it has shown
std::map<std::string, Value> called;  // members, with an answer
std::set<std::string> refusing;       // members that raise errors
std::size_t polarity_place;           // in the metadata of a spectrum
const double none = std::nan("");

/// Whether the misbehaviour is of this kind, which then has shown.
bool is(const char* of_kind) {
    has_bent |= kind == of_kind;
    return kind == of_kind;
}

std::vector<Value> elements_of(const Value& array) {
    std::vector<Value> all;
    for (std::size_t place = 0; place < array.as_array().size(); ++place)
        all.push_back(array.as_array().element(place));
    return all;
}

/// The answer in the place of the sound one.
Value changed(const Value& sound) {
    const auto* record = sound.get_if<Record>();
    const bool is_peak = record && std::holds_alternative<PeakInfo>(*record);
    if (!sound.holds<Empty>() && is("record")) return is_peak ? Value(CalibrationSettings{}) : Value(PeakInfo{});
    if (const auto* text = sound.get_if<std::string>()) {
        if (is("two lines")) return *text + "\nforged";
        if (is("other")) return "x" + *text;
    } else if (is_peak) {
        PeakInfo peak = std::get<PeakInfo>(*record);
        if (is("other")) peak.pkCentroid *= 1.01;
        if (is("NaN")) peak.pkHeight = none;
        return peak;
    } else if (const auto* array = sound.get_if<Array>()) {
        std::vector<Value> all = elements_of(sound);
        std::vector<ArrayBound> bounds = array->bounds();
        const std::size_t row = bounds.size() == 2 ? bounds.back().count : 1;
        if (is("shorter")) all.resize(all.size() - row);
        if (is("turned round")) std::ranges::reverse(all);
        bounds.front().count = all.size() / row;
        return Array(bounds, std::make_shared<const std::vector<Value>>(all));
    } else if (!sound.holds<Empty>() && !sound.holds<Object>() && !record) {
        if (is("NaN")) return none;
        if (is("text")) return "heavy";
        if (is("other")) return 2 * sound.as_double() + 1;
    }
    return sound;
}

/// What may be wrong with a spectrum, the arguments of GetNextSpectrum.
enum Filled : std::size_t { masses = 3, abundances, metadata, start_time };
using Spectrum = std::vector<Value>;
void set(Value& array, std::size_t place, const Value& value) {
    std::vector<Value> all = elements_of(array);
    all.at(place) = value;
    array = Array(all);
}
const std::pair<const char*, void (*)(Spectrum&)> spectrum_faults[] = {
    {"one abundance", [](auto& s) { s[abundances] = Array(std::vector<double>{1}); }},
    {"masses descend", [](auto& s) { set(s[masses], 500, 1.0); }},
    {"mass NaN", [](auto& s) { set(s[masses], 500, none); }},
    {"abundances from 1", [](auto& s) { s[abundances] = Array(elements_of(s[abundances]), 1); }},
    {"abundance NaN", [](auto& s) { set(s[abundances], 500, none); }},
    {"abundance infinite", [](auto& s) { set(s[abundances], 500, HUGE_VAL); }},
    {"abundance of 33 bits", [](auto& s) { set(s[abundances], 500, 2147483648.0); }},
    {"masses alone empty", [](auto& s) { s[masses] = Empty{}; }},
    {"start time", [](auto& s) { s[start_time] = s[start_time].as_double() * 1.01; }},
    {"metadata missing", [](auto& s) { s[metadata] = Array(std::vector<Value>{1}); }},
    {"polarity the other", [](auto& s) { set(s[metadata], polarity_place, 1); }},
    {"polarity 7", [](auto& s) { set(s[metadata], polarity_place, 7); }},
    {"polarity text", [](auto& s) { set(s[metadata], polarity_place, "0"); }},
    {"metadata NaN", [](auto& s) { set(s[metadata], 5, none); }},
    {"metadata none", [](auto& s) { set(s[metadata], 5, Empty{}); }}};

/// What the object gives, or what the present misbehaviour makes of it. There is one spectrum, taken once.
Value bent(const std::string& call, Arguments& arguments, const std::function<Value()>& sound) try {
    const bool is_spectrum = call == "InstrumentControl.GetNextSpectrum";
    if (call == bent_call && is("nothing")) return {};
    if (call == bent_call && is("raises")) {
        if (call.size() % 2) throw 42;
        throw std::runtime_error("out of order");
    }
    static Spectrum kept;
    if (is_spectrum && kept.empty()) sound(), kept = arguments.positional;
    if (is_spectrum) arguments.positional = kept;
    const Value result = is_spectrum ? Value() : sound();
    called[call] = result;
    if (call != bent_call) return result;
    for (const auto& [name, fault] : spectrum_faults)
        if (is_spectrum && is(name)) fault(arguments.positional);
    return changed(result);
} catch (const Error& error) {
    refusing.insert(call);
    if (call != bent_call) throw;
    if (is("unnamed")) throw Error(error.number(), error.source(), "refused");
    if (!is("answers")) throw;
    return {};
}

/// The failed checks of a simulator of short spectra, offered late bound, with the present misbehaviour.
std::vector<ConformanceResult> failures() {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "Logfiles");
    write_text(folder.path() / "scene.json", R"({"instrument": {"spectrum_duration_ns": 500}})");
    const Value layer = make_object<InstrumentLayer>(make_simulator(
        {folder.file(""), 1, folder.file("scene.json"), {}}, make_system_files(), std::make_shared<VirtualClock>()));
    auto results =
        check_instrument_layer(*make_late_bound_layer([&] { return Stranger::mask(layer, bent).as_object(); }));
    std::erase_if(results, [](const ConformanceResult& result) { return result.passed; });
    return results;
}

// Lines "member: kind: number of failed checks, the first of them by the alphabet". What is no error, or no answer of
// the member's type, is told with the name of the call.
TEST(Conformance, FindsEveryMisbehaviourOfEveryMember) {
    const auto described = EmbeddedWorld().platform().instrument->create_globals()->control()->GetMetaDescription();
    polarity_place = std::ranges::find(described.elements(), "Polarity (S)") - described.elements().begin();
    EXPECT_TRUE(failures().empty()) << "the layer is sound";
    const std::map<std::string, Value> members = called;
    for (const ClassDescription& description : layer_class_descriptions())
        for (const Member& member : description.members)
            EXPECT_TRUE(members.contains(std::string(description.name) + "." + std::string(member.name)))
                << member.name;
    std::string seen;
    const auto note = [&](const std::string& call, const std::string& misbehaviour) {
        bent_call = call;
        kind = misbehaviour;
        has_bent = false;
        const auto failed = failures();
        std::set<std::string> checks;
        bool is_named = failed.empty() || (kind != "raises" && kind != "record");
        for (const ConformanceResult& result : failed) {
            checks.insert(result.operation + ": " + result.check);
            is_named |= result.detail.find("(" + call + ")") != std::string::npos;
        }
        EXPECT_TRUE(is_named) << call << " " << kind;
        const std::string first = checks.empty() ? "" : ", " + *checks.begin();
        if (has_bent) seen += call + ": " + misbehaviour + ": " + std::to_string(checks.size()) + first + "\n";
    };
    for (const auto& [call, answer] : members) {
        std::vector<const char*> kinds{"nothing", "raises"};
        if (refusing.contains(call)) kinds.insert(kinds.end(), {"answers", "unnamed"});
        for (const char* of_answer : {"NaN", "other", "text", "two lines", "shorter", "turned round", "record"}) {
            kind = of_answer;
            has_bent = false;
            changed(answer);
            if (has_bent) kinds.push_back(of_answer);
        }
        for (const char* misbehaviour : kinds) note(call, misbehaviour);
    }
    for (const auto& [name, fault] : spectrum_faults) note("InstrumentControl.GetNextSpectrum", name);
    bent_call = "";
    EXPECT_EQ(seen, read_text(KORVANE_SOURCE_DIR "/tests/automation/faults.txt"));
}

TEST(Conformance, NothingInThePlaceOfAnObjectOrWhatIsNoErrorIsAFailedCheck) {
    struct Nothing final : ForwardingInstrumentLayer {
        using ForwardingInstrumentLayer::ForwardingInstrumentLayer;
        std::unique_ptr<InstrumentGlobals> create_globals() override { return nullptr; }
        std::unique_ptr<PathInformation> create_path_information() override { return nullptr; }
        std::unique_ptr<LogbookEntry> create_logbook_entry() override { return nullptr; }
        std::unique_ptr<PeakFinder> create_peak_finder() override { return nullptr; }
    };
    struct Raising final : ForwardingInstrumentLayer {
        using ForwardingInstrumentLayer::ForwardingInstrumentLayer;
        void before(const char* member) const override {
            if (std::string_view(member) != "create_globals") throw 42;
            throw std::out_of_range("bad index");
        }
    };
    struct Uncopied final : ForwardingMassTimeCalibration {
        using ForwardingMassTimeCalibration::ForwardingMassTimeCalibration;
        CalibrationObject clone() const override { return nullptr; }
    };
    ScriptedLayer scripted;
    scripted.state->has_control = false;
    scripted.state->calibrations[0] =
        std::make_shared<Uncopied>(make_square_law_calibration(CalibrationCoefficients{4.5e-4, 20}));
    Nothing nothing(scripted);
    Raising raising(scripted);
    std::set<std::string> told;
    for (InstrumentLayer* const layer : std::initializer_list<InstrumentLayer*>{&nothing, &raising, &scripted})
        for (const ConformanceResult& result : check_instrument_layer(*layer))
            if (result.detail.find("nothing") != std::string::npos || result.detail.starts_with("an exception"))
                told.insert(result.operation + ": " + result.detail);
    const std::string odd = ": an exception that is no error";
    EXPECT_EQ(told,
              (std::set<std::string>{
                  "CalibrationStore.calibration (negative): nothing",
                  "CalibrationStore.store (positive): clone gives nothing",
                  "InstrumentGlobals.actual_value" + odd + ": map::at", "InstrumentLayer.create_globals: made nothing",
                  "InstrumentLayer.create_globals" + odd + ": bad index",
                  "InstrumentLayer.create_logbook_entry: made nothing", "InstrumentLayer.create_logbook_entry" + odd,
                  "InstrumentLayer.create_path_information" + odd, "MassTimeCalibration.clone (positive): nothing",
                  "PeakFinder.run" + odd, "PeakFinder.run: create_peak_finder made nothing"}));
}

// What the page says of a member is what the library asks for, and the other way round.
TEST(LayerObjects, AreThoseOfThePage) {
    std::ifstream page(KORVANE_SOURCE_DIR "/docs/instrument-objects.md");
    std::vector<std::string> written, offered;
    for (std::string line; std::getline(page, line);)
        if (line.starts_with("## ") || line.starts_with("| `")) written.push_back(line.substr(3, line.find("` |") - 3));
    for (const ClassDescription& description : layer_class_descriptions()) {
        offered.emplace_back(description.name);
        for (const Member& member : description.members) offered.push_back(signature_text(member));
    }
    EXPECT_EQ(written, offered);
}

}  // namespace
}  // namespace korvane::automation
