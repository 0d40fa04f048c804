#include "frame/lazy_instrument.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "frame/routine.h"
#include "korvane/forwarding.h"
#include "platform/text.h"

namespace korvane {

namespace {

constinit thread_local const char* last_call = nullptr;

[[noreturn]] void raise_of_layer(const char* member, const std::string& fault) {
    throw Error(error_number::routine_detected, member, text_of(member, "(): ", fault), ErrorKind::instrument);
}

template <class Forwarded>
struct Noted : Forwarded {
    using Forwarded::Forwarded;
    void before(const char* member) const override { note_instrument_call(member); }
};

class CheckedControl final : public Noted<ForwardingInstrumentControl> {
public:
    using Noted::Noted;
    void GetNextSpectrum(AcquiredSpectrum& spectrum) override {
        constexpr const char* member = "GetNextSpectrum";
        target(member).GetNextSpectrum(spectrum);
        const auto masses = spectrum.mass_data.elements();
        const std::size_t samples = spectrum.y_data.size();
        // Arrays that did not come, or came without elements, are for the routines to judge.
        if (!masses.empty() && samples != 0) require_size(member, samples, masses.size());
        if (!std::isfinite(spectrum.start_time_ns))
            raise_of_layer(member, text_of("start time [", spectrum.start_time_ns, "]"));
        if (masses.empty() || spectrum.mass_data.storage() == ascending_) return;
        // Neither descending nor not a number.
        const auto fault = std::ranges::adjacent_find(masses, [](double a, double b) { return !(a <= b); });
        if (fault != masses.end() || std::isnan(masses.front()))
            raise_of_layer(member, text_of("the mass axis does not ascend at sample [", fault - masses.begin(), "]"));
        ascending_ = spectrum.mass_data.storage();
    }

private:
    std::shared_ptr<const std::vector<double>> ascending_;  // the axis seen last: layers share one over many spectra
};

class CheckedGlobals final : public Noted<ForwardingInstrumentGlobals> {
public:
    using Noted::Noted;
    SetpointTable& setpoints() override { return setpoints_.of(target().setpoints()); }
    CalibrationStore& calibrations() override { return calibrations_.of(target().calibrations()); }
    HardwareQueries& hardware() override { return hardware_.of(target().hardware()); }
    FirmwareChannels& firmware() override { return firmware_.of(target().firmware()); }
    InstrumentControl* control() override {
        InstrumentControl* const lent = target().control();
        return lent ? &control_.of(*lent) : nullptr;
    }
    double sampling_interval_seconds() override {
        const double interval = target().sampling_interval_seconds();
        if (!(interval > 0)) raise_of_layer("sampling_interval_seconds", text_of("[", interval, "]"));
        return interval;
    }

private:
    Lent<Noted<ForwardingSetpointTable>> setpoints_;
    Lent<Noted<ForwardingCalibrationStore>> calibrations_;
    Lent<Noted<ForwardingHardwareQueries>> hardware_;
    Lent<Noted<ForwardingFirmwareChannels>> firmware_;
    Lent<CheckedControl> control_;
};

class CheckedLayer final : public Noted<ForwardingInstrumentLayer> {
public:
    using Noted::Noted;
    std::unique_ptr<InstrumentGlobals> create_globals() override {
        return wrapped<CheckedGlobals>(made("create_globals", target().create_globals()));
    }
    // Bare: it is asked for at every poll of the abort flag.
    std::unique_ptr<PathInformation> create_path_information() override {
        return made("create_path_information", target().create_path_information());
    }
    std::unique_ptr<LogbookEntry> create_logbook_entry() override {
        return wrapped<Noted<ForwardingLogbookEntry>>(made("create_logbook_entry", target().create_logbook_entry()));
    }
    std::unique_ptr<PeakFinder> create_peak_finder() override {
        return wrapped<Noted<ForwardingPeakFinder>>(made("create_peak_finder", target().create_peak_finder()));
    }

private:
    template <class Made>
    static Made made(const char* member, Made object) {
        if (!object) raise_runtime_fault(error_number::object_not_set, member, "() of the instrument layer");
        return object;
    }
    template <class Checked, class Interface>
    static std::unique_ptr<Checked> wrapped(std::unique_ptr<Interface> object) {
        return std::make_unique<Checked>(std::shared_ptr<Interface>(std::move(object)));
    }
};

}  // namespace

std::shared_ptr<InstrumentLayer> checked(std::shared_ptr<InstrumentLayer> layer) {
    if (dynamic_cast<CheckedLayer*>(layer.get())) return layer;
    return std::make_shared<CheckedLayer>(std::move(layer));
}

Platform checked(Platform platform) {
    platform.instrument = checked(std::move(platform.instrument));
    return platform;
}

const char* last_instrument_call() noexcept {
    return last_call;
}

void note_instrument_call(const char* member) noexcept {
    last_call = member;
}

void require_size(const char* member, std::size_t given, std::size_t expected) {
    if (given != expected) raise_of_layer(member, text_of("[", given, "] elements where [", expected, "] belong"));
}

void LazyInstrument::make() const {
    if (failure_) throw *failure_;
    try {
        globals_ = open_globals(*layer_);
    } catch (...) {
        failure_ = current_error();
        throw *failure_;
    }
}

std::string base_folder(InstrumentLayer& layer) {
    note_instrument_call("create_path_information");
    const auto paths = layer.create_path_information();
    if (!paths) raise_runtime_fault(error_number::object_not_set, "create_path_information() of the instrument layer");
    return paths->base_folder();
}

}  // namespace korvane
