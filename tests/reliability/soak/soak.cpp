#include "reliability/soak/soak.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "korvane/abort_helper.h"
#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {

namespace {

constexpr int acquisitions_a_trouble = 1000;
constexpr int calls_a_run = 500;
constexpr int lens = SpectrumWorld::adjustable_setpoint;
constexpr int scintillator = 69;

enum class Trouble { none, fault, empty_spectrum, silence, wrong_polarity, no_peaks, abort, missing_file };
constexpr const char* trouble_names[] = {"none",           "fault",    "empty spectrum", "silence",
                                         "wrong polarity", "no peaks", "abort",          "missing file"};

struct Operation {
    const char* name;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    /// Numbers of the errors by which each trouble may show, beside a success.
    std::map<Trouble, std::set<std::int32_t>> errors;
};

std::map<Trouble, std::set<std::int32_t>> errors_of_measurement() {
    return {{Trouble::fault, {-4711}},
            {Trouble::silence, {error_number::invalid_call}},
            {Trouble::wrong_polarity, {error_number::polarity_timeout}},
            {Trouble::abort, {error_number::user_aborted}},
            {Trouble::missing_file, {error_number::preferences_unavailable}}};
}

/// As a measurement, with errors that a trouble brings here besides.
std::map<Trouble, std::set<std::int32_t>> errors_of_measurement_and(
    const std::map<Trouble, std::set<std::int32_t>>& more) {
    auto all = errors_of_measurement();
    for (const auto& [trouble, numbers] : more) all[trouble].insert(numbers.begin(), numbers.end());
    return all;
}

const std::vector<Operation>& operations() {
    // A value that is not seen in time is told as such, whatever kept it away.
    constexpr auto not_reached = error_number::setpoint_not_reached;
    // A single-mass peak takes whatever spectrum comes.
    constexpr auto no_array = error_number::type_mismatch, no_peaks = error_number::routine_detected;
    const auto search = [](bool fast) {
        return [fast](SpectrumParser& parser, TuneGlobals&) {
            parser.set_fast_search(fast);
            parser.BinaryAdjustAbundanceDownUsingThisSetpoint(lens, 900, 90000, 30, true, 0, 100, 10);
        };
    };
    // A search measures with the scintillator put aside until a spectrum shows it.
    const auto errors_of_a_search = errors_of_measurement_and({{Trouble::fault, {not_reached}},
                                                               {Trouble::silence, {not_reached}},
                                                               {Trouble::empty_spectrum, {not_reached}},
                                                               {Trouble::missing_file, {not_reached}}});
    static const std::vector<Operation> all{
        {"measure", [](SpectrumParser& parser, TuneGlobals&) { parser.GetPeakInfoForCalibrantMasses(); },
         errors_of_measurement()},
        {"lists", [](SpectrumParser& parser, TuneGlobals&) { parser.GetPeakListsForCalibrantMasses(); },
         errors_of_measurement()},
        {"verify",
         [](SpectrumParser& parser, TuneGlobals&) { parser.VerifyInstrumentIsShowingValidCalibrantSpectrum(); },
         errors_of_measurement_and({{Trouble::no_peaks, {error_number::invalid_spectrum}}})},
        {"attribute",
         [](SpectrumParser& parser, TuneGlobals&) { parser.GetPeakAttribute(PeakCalcType::Height, 900); },
         {{Trouble::fault, {-4711}},
          {Trouble::silence, {no_array}},
          {Trouble::empty_spectrum, {no_array}},
          {Trouble::no_peaks, {no_peaks}}}},
        {"search", search(false), errors_of_a_search},
        {"fast search", search(true), errors_of_a_search},
        {"set",
         [](SpectrumParser&, TuneGlobals& globals) { globals.SetMSSetpointValueByIdx(lens, 60, 0, 2, true); },
         {{Trouble::fault, {-4711, not_reached}},
          {Trouble::silence, {not_reached}},
          {Trouble::empty_spectrum, {not_reached}},
          {Trouble::abort, {error_number::user_aborted}},
          {Trouble::missing_file, {error_number::preferences_unavailable, not_reached}}}},
        {"log", [](SpectrumParser&, TuneGlobals& globals) { globals.WriteLineToTuneLogFile("soak"); }, {}},
    };
    return all;
}

std::int64_t resident_kib() {
    std::ifstream status("/proc/self/statm");
    std::int64_t total = 0, resident = 0;
    status >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

std::int64_t open_handles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class Soak {
public:
    Soak(std::int64_t acquisitions, unsigned seed) : wanted_(acquisitions), random_(seed) {
        world_.test.trace().on = false;
        world_.instrument().acquire = [this](AcquiredSpectrum& spectrum, int) { acquire(spectrum); };
        world_.instrument().metadata_items = [this] { return metadata(); };
        world_.instrument().on_call = [this](int call) { meet_trouble(call); };
        world_.instrument().firmware[22] = 0;
        world_.instrument().setpoint(SpectrumWorld::transients_setpoint).lower = 0;
    }

    SoakFigures run() {
        const double start = clock().total_seconds();
        bool early_noted = false;
        while (figures_.acquisitions < wanted_) {
            one_run();
            if (!early_noted && figures_.acquisitions >= wanted_ / 10) {
                early_noted = true;
                figures_.memory_early_kib = resident_kib();
                figures_.handles_early = open_handles();
            }
        }
        figures_.memory_late_kib = resident_kib();
        figures_.handles_late = open_handles();
        figures_.virtual_hours = (clock().total_seconds() - start) / 3600;
        return std::move(figures_);
    }

private:
    VirtualClock& clock() { return *world_.test.clock; }

    /// The objects of one client from their making to their end, and the removal of what they logged.
    void one_run() {
        {
            SpectrumParser parser(world_.platform());
            TuneGlobals globals(world_.platform());
            for (int i = 0; i < calls_a_run && figures_.acquisitions < wanted_; ++i) one_call(parser, globals);
        }
        for (const auto& log : std::filesystem::directory_iterator(world_.test.base() / "Logfiles"))
            std::filesystem::remove(log);
    }

    void one_call(SpectrumParser& parser, TuneGlobals& globals) {
        const Operation& operation = operations()[random_() % operations().size()];
        begin_call();
        Error error(0, "", "");
        try {
            operation.run(parser, globals);
        } catch (const Error& raised) {
            error = raised;
        }
        const Trouble met = end_call();
        note(operation, met, error);
    }

    void begin_call() {
        ScriptedState& instrument = world_.instrument();
        instrument.setpoint(lens).value = 70;
        instrument.setpoint(scintillator).value = random_() % 4 == 0 ? 5 : 0;
        instrument.setpoint(SpectrumWorld::transients_setpoint).value = 10000;
        instrument.journal.clear();
        world_.peaks.journal.clear();
        instrument.calls = 0;
        const bool due = figures_.acquisitions >= next_trouble_;
        planned_ = due ? static_cast<Trouble>(1 + random_() % 7) : Trouble::none;
        // Somewhere in the first calls that the operation makes, so that it is met as a rule.
        at_call_ = 1 + static_cast<int>(random_() % 12);
        met_ = Trouble::none;
        if (planned_ == Trouble::fault) instrument.fault_at = at_call_;
    }

    void meet_trouble(int call) {
        if (call != at_call_ || planned_ == Trouble::none) return;
        met_ = planned_;
        next_trouble_ = figures_.acquisitions + 1 + static_cast<std::int64_t>(random_() % (2 * acquisitions_a_trouble));
        if (met_ == Trouble::abort) AbortHelper(world_.platform()).TriggerAbort();
        if (met_ == Trouble::missing_file) std::filesystem::rename(preferences(), preferences() + ".away");
    }

    Trouble end_call() {
        if (met_ == Trouble::missing_file) std::filesystem::rename(preferences() + ".away", preferences());
        if (met_ == Trouble::abort) AbortHelper(world_.platform()).Reset();
        world_.instrument().fault_at.reset();
        planned_ = Trouble::none;
        return met_;
    }
    std::string preferences() const { return (world_.test.base() / "TunePreferences.xml").string(); }

    void acquire(AcquiredSpectrum& spectrum) {
        clock().advance(0.2);
        ++figures_.acquisitions;
        const bool empty_once = met_ == Trouble::empty_spectrum && !emptied();
        if (met_ == Trouble::silence || empty_once) return;
        world_.fill(spectrum);
        const std::int32_t polarity = met_ == Trouble::wrong_polarity ? 1 : 0;
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity, 0});
        const bool no_peaks = met_ == Trouble::no_peaks;
        world_.set_peak(900, no_peaks ? 0 : 5000);
        world_.set_peak(1600, no_peaks ? 0 : 5000);
    }
    /// Only the first spectrum after the trouble began is empty.
    bool emptied() {
        const bool already = empties_ == figures_.calls;
        empties_ = figures_.calls;
        return already;
    }
    std::vector<MetaItem> metadata() {
        clock().advance(0.2);
        ++figures_.acquisitions;
        if (met_ == Trouble::silence) return {};
        std::vector<MetaItem> items;
        for (const auto& [index, setpoint] : world_.instrument().setpoints)
            items.push_back({setpoint.name, setpoint.value});
        return items;
    }

    void note(const Operation& operation, Trouble met, const Error& error) {
        ++figures_.calls;
        figures_.troubles += met != Trouble::none;
        const std::string result = error.number() == 0 ? "success" : "error " + std::to_string(error.number());
        ++figures_.results[std::string(operation.name) + ", " + trouble_names[static_cast<int>(met)] + ": " + result];
        if (is_explained(operation, met, error)) return;
        if (figures_.unexplained++ == 0)
            figures_.first_unexplained = std::string(operation.name) + ", " + trouble_names[static_cast<int>(met)] +
                                         ": " + result + " " + error.description();
    }

    bool is_explained(const Operation& operation, Trouble met, const Error& error) {
        if (met == Trouble::none) return error.number() == 0 && is_as_promised(operation);
        // The other troubles may come when nothing asks for what they spoil any more.
        if (error.number() == 0) return met != Trouble::fault;
        const auto explained = operation.errors.find(met);
        return explained != operation.errors.end() && explained->second.contains(error.number());
    }
    /// After an untroubled call nothing may be left behind on the instrument.
    bool is_as_promised(const Operation& operation) {
        ScriptedState& instrument = world_.instrument();
        const bool setting = operation.name == std::string("set");
        return instrument.setpoint(SpectrumWorld::transients_setpoint).value == 10000 &&
               (!setting || instrument.setpoint(lens).value == 60);
    }

    SpectrumWorld world_;
    std::int64_t wanted_;
    std::mt19937 random_;
    SoakFigures figures_;
    Trouble planned_ = Trouble::none, met_ = Trouble::none;
    int at_call_ = 0;
    std::int64_t next_trouble_ = acquisitions_a_trouble;
    std::int64_t empties_ = -1;
};

}  // namespace

SoakFigures soak(std::int64_t acquisitions, unsigned seed) {
    return Soak(acquisitions, seed).run();
}

}  // namespace korvane
