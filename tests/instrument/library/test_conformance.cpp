// Every layer of ours conforms, and one misbehaviour at a time of one member of a sound layer is found: which checks
// fail stands in faults.txt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "instrument/simulator/simulator.h"
#include "korvane/conformance.h"
#include "korvane/forwarding.h"
#include "platform/automation_arithmetic.h"
#include "support/test_platform.h"
#include "support/virtual_clock.h"

namespace korvane {
namespace {

std::string bent_member, kind;  // of the misbehaviour
bool bends = false;             // whether the member called last is the one
bool has_bent = false;          // whether the misbehaviour has shown
std::set<std::string> called;   // members
const double none = std::nan("");
using Index = std::int32_t;
using Numbers = std::vector<double>;

/// Whether the misbehaviour is of this kind, which then has shown.
bool is(const char* of_kind) {
    has_bent |= kind == of_kind;
    return kind == of_kind;
}

auto elements_of(const auto& list) {
    if constexpr (requires { list.elements(); })
        return list.elements();
    else
        return std::span(list);
}

/// The answer in the place of the sound one.
template <class Value>
Value changed(const Value& sound) {
    if (is("nothing")) return Value();
    if constexpr (std::is_same_v<Value, InstrumentValue>) {
        if (is("NaN")) return none;
        if (is("text")) return "heavy";
        if (!std::holds_alternative<std::string>(sound) && is("other")) return 2 * to_double(sound) + 1;
    } else if constexpr (std::is_arithmetic_v<Value>) {
        if (is("other")) return static_cast<Value>(2 * sound + 1);
        if (std::is_floating_point_v<Value> && is("NaN")) return static_cast<Value>(none);
    } else if constexpr (std::is_same_v<Value, std::string>) {
        if (is("two lines")) return sound + "\nforged";
        if (is("other")) return "x" + sound;
    } else if constexpr (std::is_same_v<Value, PeakInfo>) {
        PeakInfo peak = sound;
        if (is("other")) return peak.pkCentroid *= 1.01, peak;
        if (is("NaN")) return peak.pkHeight = none, peak;
    } else if constexpr (!std::is_same_v<Value, CalibrationCoefficients>) {
        std::vector all(elements_of(sound).begin(), elements_of(sound).end());
        if (is("shorter")) return all.pop_back(), all;
        if (is("turned round")) return std::ranges::reverse(all), all;
    }
    return sound;
}

template <class Base>
struct Bent : Base {
    using Base::Base;
    void before(const char* member) const override {
        called.insert(member);
        bends = member == bent_member;
        if (!bends || !is("raises")) return;
        if (member[0] < 'i') throw 42;
        throw std::runtime_error("out of order");
    }
};

/// What the object behind answers, or what the present misbehaviour makes of it.
template <class Interface, class Value, class... Given, class... Arguments>
Value bend(Interface& target, Value (Interface::*member)(Given...), const Arguments&... arguments) {
    if (!bends) return (target.*member)(arguments...);
    try {
        if constexpr (std::is_void_v<Value>) {
            if (!is("nothing")) (target.*member)(arguments...);
        } else if constexpr (requires(Value value) { *value; }) {
            return is("nothing") ? nullptr : (target.*member)(arguments...);
        } else {
            return changed<Value>((target.*member)(arguments...));
        }
    } catch (const Error& error) {
        if (is("unnamed")) throw Error(error.number(), error.source(), "refused");
        if (!is("answers")) throw;
        if constexpr (!std::is_void_v<Value>) return Value();
    }
}
template <class Interface, class Value, class... Given, class... Arguments>
Value bend(Interface& target, Value (Interface::*member)(Given...) const, const Arguments&... arguments) {
    return bend(target, reinterpret_cast<Value (Interface::*)(Given...)>(member), arguments...);
}

/// The object as a part of the bent layer; null where there is none.
template <class Part, class Object>
std::unique_ptr<Part> part(Object object) {
    return object ? std::make_unique<Part>(std::move(object)) : nullptr;
}

template <class Value>
VariantArray<Value> with(const VariantArray<Value>& sound, std::size_t place, const Value& value) {
    std::vector<Value> all(sound.elements().begin(), sound.elements().end());
    all.at(place) = value;
    return all;
}

/// What may be wrong with a spectrum; the polarity is the value of place `polarity` of its metadata.
using Bend = void (*)(AcquiredSpectrum&, std::size_t polarity);
const std::vector<std::pair<const char*, Bend>> spectrum_faults{
    {"spectrum empty", [](auto& s, auto) { s = {}; }},
    {"one abundance", [](auto& s, auto) { s.y_data = Numbers{1}; }},
    {"masses descend", [](auto& s, auto) { s.mass_data = with(s.mass_data, 500, 1.0); }},
    {"mass NaN", [](auto& s, auto) { s.mass_data = with(s.mass_data, 500, none); }},
    {"abundances from 1", [](auto& s, auto) { s.y_data = VariantArray<double>(Numbers(s.mass_data.size()), 1); }},
    {"abundance NaN", [](auto& s, auto) { s.y_data = with(s.y_data, 500, none); }},
    {"abundance infinite", [](auto& s, auto) { s.y_data = with(s.y_data, 500, HUGE_VAL); }},
    {"abundance of 33 bits", [](auto& s, auto) { s.y_data = with(s.y_data, 500, 2147483648.0); }},
    {"masses alone empty", [](auto& s, auto) { s.mass_data = {}; }},
    {"start time", [](auto& s, auto) { s.start_time_ns *= 1.01; }},
    {"metadata missing", [](auto& s, auto) { s.meta_data = std::vector<InstrumentValue>{1}; }},
    {"polarity the other", [](auto& s, auto at) { s.meta_data = with(s.meta_data, at, InstrumentValue(1)); }},
    {"polarity 7", [](auto& s, auto at) { s.meta_data = with(s.meta_data, at, InstrumentValue(7)); }},
    {"polarity text", [](auto& s, auto at) { s.meta_data = with(s.meta_data, at, InstrumentValue("0")); }},
    {"metadata NaN", [](auto& s, auto) { s.meta_data = with(s.meta_data, 5, InstrumentValue(none)); }},
    {"metadata none", [](auto& s, auto) { s.meta_data = with(s.meta_data, 5, InstrumentValue()); }},
};

struct Table : Bent<ForwardingSetpointTable> {
    using Bent::Bent;
    using I = SetpointTable;
    InstrumentValue value(Index i, Index t, Index s) override { return bend(target(), &I::value, i, t, s); }
    void write(Index i, Index t, Index s, const SetpointValue& v) override { bend(target(), &I::write, i, t, s, v); }
    double lower_limit(Index i) override { return bend(target(), &I::lower_limit, i); }
    double upper_limit(Index i) override { return bend(target(), &I::upper_limit, i); }
    double resolution(Index i) override { return bend(target(), &I::resolution, i); }
    double tolerance(Index i) override { return bend(target(), &I::tolerance, i); }
    Index variable_type(Index i) override { return bend(target(), &I::variable_type, i); }
    std::string external_name(Index i) override { return bend(target(), &I::external_name, i); }
    std::string internal_name(Index i) override { return bend(target(), &I::internal_name, i); }
    Index index_of(const std::string& name) override { return bend(target(), &I::index_of, name); }
    std::vector<Index> indexes() override { return bend(target(), &I::indexes); }
};

struct Hardware : Bent<ForwardingHardwareQueries> {
    using Bent::Bent;
    using I = HardwareQueries;
    std::string option_name(Index code) override { return bend(target(), &I::option_name, code); }
    bool option_present(const std::string& name) override { return bend(target(), &I::option_present, name); }
    std::string model() override { return bend(target(), &I::model); }
};

struct Firmware : Bent<ForwardingFirmwareChannels> {
    using Bent::Bent;
    Index write(Index c, float v) override { return bend(target("write channel"), &FirmwareChannels::write, c, v); }
    double read(Index channel) override { return bend(target(), &FirmwareChannels::read, channel); }
};

struct Calibration : Bent<ForwardingMassTimeCalibration> {
    using Bent::Bent;
    using I = MassTimeCalibration;
    CalibrationCoefficients coefficients() const override { return bend(target(), &I::coefficients); }
    VariantArray<Index> use_flags() const override { return bend(target(), &I::use_flags); }
    double mass_from_time(double time) const override { return bend(target(), &I::mass_from_time, time); }
    double time_from_mass(double mass) const override { return bend(target(), &I::time_from_mass, mass); }
    Numbers times_from_masses(const Numbers& all) const override { return bend(target(), &I::times_from_masses, all); }
    Numbers masses_from_times(const Numbers& all) const override { return bend(target(), &I::masses_from_times, all); }
    CalibrationObject clone() const override { return bend(target(), &I::clone); }
};

struct Calibrations : Bent<ForwardingCalibrationStore> {
    using Bent::Bent;
    CalibrationObject calibration(Index polarity) override {
        return part<Calibration>(bend(target(), &CalibrationStore::calibration, polarity));
    }
    void store(Index p, const MassTimeCalibration& c) override { bend(target(), &CalibrationStore::store, p, c); }
};

struct Control : Bent<ForwardingInstrumentControl> {
    using Bent::Bent;
    using I = InstrumentControl;
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        I& sound = target();
        static const AcquiredSpectrum kept = [&] { return sound.GetNextSpectrum(spectrum), spectrum; }();
        spectrum = kept;
        const auto description = sound.GetMetaDescription();
        const auto place = std::ranges::find(description.elements(), "Polarity (S)") - description.elements().begin();
        for (const auto& [name, fault] : spectrum_faults)
            if (bends && is(name)) fault(spectrum, static_cast<std::size_t>(place));
    }
    VariantArray<std::string> GetMetaDescription() override { return bend(target(), &I::GetMetaDescription); }
    std::vector<MetaItem> next_spectrum_metadata() override { return bend(target(), &I::next_spectrum_metadata); }
    double read_register(const std::string& path) override { return bend(target(), &I::read_register, path); }
};

struct Globals : Bent<ForwardingInstrumentGlobals> {
    using I = InstrumentGlobals;
    explicit Globals(const std::shared_ptr<InstrumentGlobals>& behind)
        : Bent(behind),
          table(behind->setpoints()),
          store(behind->calibrations()),
          queries(behind->hardware()),
          channels(behind->firmware()),
          spectra(*behind->control()) {}
    SetpointTable& setpoints() override { return table; }
    CalibrationStore& calibrations() override { return store; }
    HardwareQueries& hardware() override { return queries; }
    FirmwareChannels& firmware() override { return channels; }
    InstrumentControl* control() override { return bend(target(), &I::control) ? &spectra : nullptr; }
    InstrumentValue dictionary_item(const std::string& name) override {
        return bend(target(), &I::dictionary_item, name);
    }
    std::string parameter_name(Index index) override { return bend(target(), &I::parameter_name, index); }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        return bend(target(), &I::actual_value, path, type);
    }
    double sampling_interval_seconds() override { return bend(target(), &I::sampling_interval_seconds); }
    std::string source_type() override { return bend(target(), &I::source_type); }
    std::string time_stamp() override { return bend(target(), &I::time_stamp); }
    std::string title() override { return bend(target(), &I::title); }

    Table table;
    Calibrations store;
    Hardware queries;
    Firmware channels;
    Control spectra;
};

struct List : Bent<ForwardingPeakList> {
    using Bent::Bent;
    Index count() const override { return bend(target(), &PeakList::count); }
    void order(Index position, Index way) override { bend(target(), &PeakList::order, position, way); }
    PeakInfo GetPeakAttributeInfo(Index index, bool units) const override {
        return bend(target(), &PeakList::GetPeakAttributeInfo, index, units);
    }
    void convert(const MassTimeCalibration& c, Index mode) override { bend(target(), &PeakList::convert, c, mode); }
};

struct Finder : Bent<ForwardingPeakFinder> {
    using Bent::Bent;
    void set_search_start_ns(double time) override { bend(target(), &PeakFinder::set_search_start_ns, time); }
    PeakListObject run(double start) override { return part<List>(bend(target(), &PeakFinder::run, start)); }
    double baseline() const override { return bend(target(), &PeakFinder::baseline); }
};

struct Paths : Bent<ForwardingPathInformation> {
    using Bent::Bent;
    std::string base_folder() override { return bend(target(), &PathInformation::base_folder); }
};

struct Layer : Bent<ForwardingInstrumentLayer> {
    using Bent::Bent;
    using I = InstrumentLayer;
    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return part<Globals>(bend(target(), &I::create_globals));
    }
    std::unique_ptr<PathInformation> create_path_information() override {
        return part<Paths>(bend(target(), &I::create_path_information));
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override { return bend(target(), &I::create_logbook_entry); }
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        return part<Finder>(bend(target(), &I::create_peak_finder));
    }
};

/// The failed checks of a simulator of short spectra with the present misbehaviour: "operation: check".
std::set<std::string> failures() {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "Logfiles");
    write_text(folder.path() / "scene.json", R"({"instrument": {"spectrum_duration_ns": 500}})");
    Layer layer(make_simulator({folder.file(""), 1, folder.file("scene.json"), {}}, make_system_files(),
                               std::make_shared<VirtualClock>()));
    std::set<std::string> failed;
    for (const ConformanceResult& result : check_instrument_layer(layer))
        if (!result.passed) failed.insert(result.operation + ": " + result.check);
    return failed;
}

// Lines "member: kind: number of failed checks, the first of them".
TEST(Conformance, FindsEveryMisbehaviourOfEveryMember) {
    EXPECT_THAT(failures(), testing::IsEmpty()) << "the layer is sound";
    const std::set<std::string> members = called;
    std::string seen;
    const auto note = [&](const std::string& member, const std::string& misbehaviour) {
        bent_member = member;
        kind = misbehaviour;
        has_bent = false;
        const auto failed = failures();
        const std::string first = failed.empty() ? "" : ", " + *failed.begin();
        if (has_bent) seen += member + ": " + misbehaviour + ": " + std::to_string(failed.size()) + first + "\n";
    };
    for (const std::string& member : members)
        for (const char* misbehaviour : {"nothing", "NaN", "other", "text", "two lines", "shorter", "turned round",
                                         "answers", "unnamed", "raises"})
            note(member, misbehaviour);
    for (const auto& [name, fault] : spectrum_faults) note("GetNextSpectrum", name);
    bent_member = "";
    EXPECT_EQ(seen, read_text(KORVANE_SOURCE_DIR "/tests/instrument/library/faults.txt"));
}

}  // namespace
}  // namespace korvane
