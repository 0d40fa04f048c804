// One fault at a time in a sound layer: the check that finds it, and its text. Then a layer that raises anything at
// all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <stdexcept>

#include "instrument/simulator/simulator.h"
#include "korvane/conformance.h"
#include "korvane/forwarding.h"
#include "korvane/instrument_contract.h"
#include "support/test_platform.h"
#include "support/virtual_clock.h"

namespace korvane {
namespace {

using contract::setpoint;

std::string fault;             // that the layer has now
std::string raising_member;    // at which it raises what is no error
std::set<std::string> called;  // members

bool has(const char* name) {
    return fault == name;
}

template <class Base>
struct Bent : Base {
    using Base::Base;
    void before(const char* member) const override {
        called.insert(member);
        if (member != raising_member) return;
        if (member[0] < 'i') throw 42;
        throw std::runtime_error("out of order");
    }
};

using Index = std::int32_t;

struct Table : Bent<ForwardingSetpointTable> {
    using Bent::Bent;
    InstrumentValue value(Index index, Index time, Index scan) override {
        const bool unknown = index > 1000;
        if (unknown && has("unknown index answered")) return 0;
        if (unknown && has("unknown index unnamed")) raise_runtime_fault(error_number::subscript);
        if (unknown && has("unknown index is error 6")) raise_runtime_fault(error_number::overflow, "987654");
        if (index == setpoint.lowest_mass && has("value NaN")) return std::nan("");
        if (index == setpoint.lowest_mass && has("value text")) return "fifty";
        return Bent::value(index, time, scan);
    }
    void write(Index index, Index time, Index scan, const SetpointValue& value) override {
        if (index == setpoint.lowest_mass && fault.starts_with("value")) return;
        if (index > 1000 && has("unknown index written")) return;
        const bool changed = index == setpoint.sheath_gas_pressure && has("write changed");
        Bent::write(index, time, scan, changed ? 1.5 : value);
    }
    double lower_limit(Index i) override { return on_vcap(i, "limits crossed") ? 1e9 : Bent::lower_limit(i); }
    double resolution(Index i) override { return on_vcap(i, "resolution") ? 0 : Bent::resolution(i); }
    double tolerance(Index i) override { return on_vcap(i, "tolerance") ? 0 : Bent::tolerance(i); }
    Index variable_type(Index i) override { return on_vcap(i, "type") ? 5 : Bent::variable_type(i); }
    std::string external_name(Index i) override {
        if (on_vcap(i, "name begins another")) return "vcap";
        return on_vcap(i, "external name") ? "" : Bent::external_name(i);
    }
    Index index_of(const std::string& name) override {
        if (has("unknown name found") && name == "NoSuchItem") return 1;
        return has("index_of") && name == "Polarity" ? 118 : Bent::index_of(name);
    }
    std::vector<Index> indexes() override {
        std::vector<Index> all = Bent::indexes();
        if (has("indexes descend")) std::swap(all.front(), all.back());
        if (has("indexes empty")) all.clear();
        if (has("index missing")) std::erase(all, setpoint.averaging.key);
        return all;
    }

private:
    static bool on_vcap(Index index, const char* name) { return index == setpoint.vcap_nano_esi && has(name); }
};

struct Hardware : Bent<ForwardingHardwareQueries> {
    using Bent::Bent;
    std::string option_name(Index code) override { return has("option name") ? "" : Bent::option_name(code); }
    bool option_present(const std::string& name) override {
        const bool unknown = name == "NoSuchItem";
        if (unknown && has("unknown option unnamed")) raise_runtime_fault(error_number::invalid_call);
        return (unknown && has("unknown option present")) || (!name.empty() && Bent::option_present(name));
    }
    std::string model() override { return has("no text") ? "" : Bent::model(); }
};

struct Firmware : Bent<ForwardingFirmwareChannels> {
    using Bent::Bent;
    std::int32_t write(Index channel, float value) override { return has("channel") ? 0 : Bent::write(channel, value); }
    double read(Index channel) override { return has("channel") ? ++reads : Bent::read(channel); }
    double reads = 0;
};

struct Deaf : ForwardingMassTimeCalibration {
    using ForwardingMassTimeCalibration::ForwardingMassTimeCalibration;
    void set_settings(const CalibrationSettings&) override {}
};

struct Calibration : Bent<ForwardingMassTimeCalibration> {
    using Bent::Bent;
    using Numbers = std::vector<double>;
    CalibrationCoefficients coefficients() const override {
        return has("A is 0") ? CalibrationCoefficients() : Bent::coefficients();
    }
    VariantArray<Index> use_flags() const override {
        return has("use flags") ? VariantArray<Index>() : Bent::use_flags();
    }
    double mass_from_time(double t) const override {
        return Bent::mass_from_time(t) * (has("mass off") ? 1 + 1e-8 : 1);
    }
    double time_from_mass(double m) const override { return m < 0 && has("any mass") ? 0 : Bent::time_from_mass(m); }
    Numbers times_from_masses(const Numbers& masses) const override {
        return has("no times") ? Numbers() : Bent::times_from_masses(masses);
    }
    Numbers masses_from_times(const Numbers& times) const override {
        return has("masses off") ? Numbers{120, 622, 1522.1} : Bent::masses_from_times(times);
    }
    CalibrationObject clone() const override {
        if (has("clone null")) return nullptr;
        return has("clone keeps nothing") ? std::make_shared<Deaf>(Bent::clone()) : Bent::clone();
    }
};

struct Calibrations : Bent<ForwardingCalibrationStore> {
    using Bent::Bent;
    CalibrationObject calibration(Index polarity) override {
        if (polarity == 1 && has("no calibration")) return nullptr;
        return std::make_shared<Calibration>(Bent::calibration(has("any polarity") ? 0 : polarity));
    }
    void store(Index polarity, const MassTimeCalibration& calibration) override {
        if (has("foreign object refused")) raise_runtime_fault(error_number::type_mismatch, "foreign object");
        Bent::store(polarity, calibration);
    }
};

struct Control : Bent<ForwardingInstrumentControl> {
    using Bent::Bent;
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        before("GetNextSpectrum");
        static const AcquiredSpectrum sound = short_spectrum();
        spectrum = sound;
        const auto sound_masses = sound.mass_data.elements();
        std::vector<double> masses(sound_masses.begin(), sound_masses.end());
        if (has("mass missing")) masses.pop_back();
        if (has("masses descend")) std::swap(masses[500], masses[501]);
        spectrum.mass_data = std::move(masses);
        if (has("arrays from 1")) spectrum.y_data = VariantArray<double>(std::vector<double>(1000), 1);
        if (has("spectrum empty")) spectrum.mass_data.clear();
        if (has("start time")) spectrum.start_time_ns *= 1.01;
        if (has("metadata missing")) spectrum.meta_data = std::vector<InstrumentValue>{1};
        if (has("other polarity")) spectrum.meta_data = std::vector<InstrumentValue>(sound.meta_data.size(), 1);
    }
    VariantArray<std::string> GetMetaDescription() override {
        const auto sound = Bent::GetMetaDescription();
        std::vector<std::string> all(sound.elements().begin(), sound.elements().end());
        if (has("no experiment")) all.front() = "";
        if (has("experiment twice")) all.insert(all.begin(), all.front());
        if (has("no mark")) all = std::vector<std::string>(all.size(), "Experiment");
        return all;
    }
    std::vector<MetaItem> next_spectrum_metadata() override {
        before("next_spectrum_metadata");
        static const std::vector<MetaItem> sound = Bent::next_spectrum_metadata();
        std::vector<MetaItem> items = sound;
        if (has("items missing")) items.resize(1);
        if (has("items without value"))
            for (MetaItem& item : items) item.value = {};
        return items;
    }
    double read_register(const std::string& path) override {
        if (has("never pre-run")) return 2;
        return has("any register") ? 1 : Bent::read_register(path);
    }

private:
    AcquiredSpectrum short_spectrum() {
        AcquiredSpectrum spectrum;
        Bent::GetNextSpectrum(spectrum);
        for (auto* const values : {&spectrum.mass_data, &spectrum.y_data}) {
            const auto some = values->elements().first(1000);
            *values = std::vector<double>(some.begin(), some.end());
        }
        return spectrum;
    }
};

struct Globals : Bent<ForwardingInstrumentGlobals> {
    explicit Globals(const std::shared_ptr<InstrumentGlobals>& target)
        : Bent(target),
          table(target->setpoints()),
          store(target->calibrations()),
          queries(target->hardware()),
          channels(target->firmware()),
          spectra(*target->control()) {}

    SetpointTable& setpoints() override { return before("setpoints"), table; }
    CalibrationStore& calibrations() override { return before("calibrations"), store; }
    HardwareQueries& hardware() override { return before("hardware"), queries; }
    FirmwareChannels& firmware() override { return before("firmware"), channels; }
    InstrumentControl* control() override { return before("control"), has("no control") ? nullptr : &spectra; }
    InstrumentValue dictionary_item(const std::string& name) override {
        if (has("item text") && name == "CalPolynomialWeighting") return "heavy";
        if (has("no slicer hours") && name.starts_with("Slicer")) raise_runtime_fault(error_number::invalid_call, name);
        return has("any item") ? 1.0 : Bent::dictionary_item(name);
    }
    std::string parameter_name(Index index) override { return has("no text") ? "" : Bent::parameter_name(index); }
    InstrumentValue actual_value(const std::string& path, const std::string& type) override {
        if (has("state without type") && path.ends_with("[RUNSTATE]") && type == "VARIANT") return {};
        return has("any path") ? 1.0 : Bent::actual_value(path, type);
    }
    double sampling_interval_seconds() override {
        return has("interval 1 s") ? 1 : Bent::sampling_interval_seconds() * (has("interval doubled") ? 2 : 1);
    }
    std::string source_type() override { return has("no text") ? "" : Bent::source_type(); }
    std::string source_word() override { return has("no text") ? "" : Bent::source_word(); }
    std::string time_stamp() override { return has("no text") ? "" : Bent::time_stamp(); }
    std::string title() override { return has("no text") ? "" : Bent::title(); }

    Table table;
    Calibrations store;
    Hardware queries;
    Firmware channels;
    Control spectra;
};

struct List : Bent<ForwardingPeakList> {
    using Bent::Bent;
    void order(Index position, Index direction) override { Bent::order(position, has("order") ? 1 : direction); }
    PeakInfo GetPeakAttributeInfo(Index index, bool current_units) const override {
        PeakInfo peak = Bent::GetPeakAttributeInfo(has("any peak") ? 0 : index, current_units);
        if (has("centroid")) peak.pkCentroid += 0.6;
        if (has("height")) peak.pkHeight *= 1.06;
        return peak;
    }
    void convert(const MassTimeCalibration& calibration, Index mode) override {
        if (has("convert nothing") || (mode != convert_to_amu_mode && has("any mode"))) return;
        Bent::convert(calibration, mode);
    }
};

struct Finder : Bent<ForwardingPeakFinder> {
    using Bent::Bent;
    void set_search_start_ns(double time) override { Bent::set_search_start_ns(has("window") ? 0 : time); }
    PeakListObject run(double start) override {
        return has("no list") ? nullptr : std::make_shared<List>(Bent::run(start));
    }
    double baseline() const override { return has("baseline") ? 200 : Bent::baseline(); }
};

struct Layer : Bent<ForwardingInstrumentLayer> {
    using Bent::Bent;
    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return has("no globals") ? nullptr : std::make_unique<Globals>(Bent::create_globals());
    }
    std::unique_ptr<PathInformation> create_path_information() override {
        return has("no paths") ? nullptr : Bent::create_path_information();
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override {
        return has("no logbook") ? nullptr : Bent::create_logbook_entry();
    }
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        return has("no finder") ? nullptr : std::make_unique<Finder>(Bent::create_peak_finder());
    }
};

class Conformance : public testing::Test {
protected:
    Conformance() : layer(simulator(folder)) { std::filesystem::create_directory(folder.path() / "Logfiles"); }
    ~Conformance() override { fault = raising_member = ""; }

    static std::shared_ptr<InstrumentLayer> simulator(const TemporaryFolder& folder) {
        return make_simulator({.base_folder = folder.file(""), .seed = 1, .scene_path = {}, .state_path = {}},
                              make_system_files(), std::make_shared<VirtualClock>());
    }
    /// "operation: check: detail", measured numbers as "#".
    std::vector<std::string> failures() {
        static const std::regex measured("[0-9]+\\.[0-9]{6,}");
        std::vector<std::string> lines;
        for (const ConformanceResult& result : check_instrument_layer(layer))
            if (!result.passed)
                lines.push_back(result.operation + ": " + result.check + ": " +
                                std::regex_replace(result.detail, measured, "#"));
        return lines;
    }

    TemporaryFolder folder;
    Layer layer;
};

// Lines "fault|failure": all that the fault makes fail.
TEST_F(Conformance, EveryFaultIsFoundByItsChecks) {
    EXPECT_THAT(failures(), testing::IsEmpty()) << "the layer is sound";
    std::map<std::string, std::vector<std::string>> expected;
    const std::string here = KORVANE_SOURCE_DIR "/tests/instrument/library/faults.txt";
    for (const std::string& line : read_lines(here))
        expected[line.substr(0, line.find('|'))].push_back(line.substr(line.find('|') + 1));
    EXPECT_EQ(expected.size(), 69u);
    for (const auto& [name, lines] : expected) {
        fault = name;
        EXPECT_EQ(failures(), lines) << name;
    }
}

// Whatever a member raises ends as a failed check.
TEST_F(Conformance, NothingThatALayerRaisesGetsOut) {
    failures();
    for (const std::string& member : std::set<std::string>(called)) {
        raising_member = member;
        EXPECT_THAT(failures(), testing::Contains(testing::HasSubstr("an exception that is no error"))) << member;
    }
}

}  // namespace
}  // namespace korvane
