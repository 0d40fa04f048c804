// Readiness, a peak's abundance over several spectra, and the bisection over a setpoint until that comes down to its
// target.
#include <cmath>

#include "spectrum/parser_state.h"

namespace korvane {

namespace {

/// By the rules of automation: error 11 when the divisor is 0.
double checked_quotient(double value, double divisor) {
    if (divisor == 0) raise_runtime_fault(error_number::division_by_zero);
    return value / divisor;
}

/// A register's value as the 16-bit integer that it has to be.
std::int16_t whole(double value, const std::string& instrument_register) {
    return located([&] { return text_of("register[", instrument_register, "]"); }, [&] { return to_int16(value); });
}

using End = AdjustOutcome::End;

constexpr int ready_poll_milliseconds = 500;
constexpr std::int32_t averaged_spectra = 3;
// A fast measurement further off the target than this share of it is repeated.
constexpr double far_off_the_target = 0.5;
constexpr int most_repetitions = 4;

constexpr std::string_view search_name = "BinaryAdjustAbundanceDownUsingThisSetpoint";
constexpr std::string_view fast_search_name = "BinaryAdjustAbundanceDownUsingThisSetpoint_Fast";

/// The caller's wishes, named as on the public face.
struct SearchRequest {
    std::int32_t IdxOfSetpointToAdjust;
    double mz, AbTarget, dmz;
    bool bLowerThisSPToReduceAbundance;
    double StartingMinSPValue, StartingMaxSPValue, SPResolution;
};

/// The log stays open as long as the parser.
void WriteLineToBinarySearchLogFile(ParserState& state, const std::string& line) {
    const auto kept = swallowed_after([&](TraceObj& record, RoutineName name, const Error& error) {
        const std::string text = text_of("error[", error.number(), "] in ", name.name, "(): ", error.description());
        state.tune.set_ErrorMsgString(text);
        record.TR_PRINT(text);
    });
    routine(state.trace, kept, [&] {
        if (!state.search_log.is_open()) {
            const LocalTime now = state.platform.clock->now();
            const InstrumentValue gain_channel = state.current().table().value(
                contract::setpoint.preamp_gain_mode, state.segments.time, state.segments.scan);
            state.search_log.open(dated_log_name("BinarySearch", now),
                                  text_of("===Binary Search ", general_date_text(now),
                                          "GainChannel = ", one_line(number_text(gain_channel))));
        }
        state.search_log.write_line(line);
    });
}

/// A line of a search goes to the trace and, when that is on, to the binary-search log.
template <class... Pieces>
void search_line(ParserState& state, TraceObj& record, const Pieces&... pieces) {
    record.TR_PRINT(pieces...);
    if (state.search_log_is_on.value_or(false)) WriteLineToBinarySearchLogFile(state, one_line(text_of(pieces...)));
}

bool is_search_log_chosen(ParserState& state) {
    return state.prefs.GetTunePreference("BinarySearchLoggingEnabled") == "3000";
}

/// One search through the setpoint table, with the wait for readiness. Setpoint values are called voltages, as in the
/// log.
class Search {
public:
    Search(SpectrumParser& parser, ParserState& state, TraceObj& record, const SearchRequest& request)
        : parser_(parser), state_(state), request_(request), record_(record) {}
    virtual ~Search() = default;

    double run() {
        prepare();
        for (;;) {
            state_.raise_if_aborted();
            const double PreviousVoltage = Setpoint_Middle;
            Setpoint_Middle = (HighVoltage + LowVoltage) / 2;
            line("new PreviousVoltage[", PreviousVoltage, "]; new Setpoint_Middle = (", HighVoltage, " + ", LowVoltage,
                 ") / 2 = ", Setpoint_Middle);
            const double step = std::abs(Setpoint_Middle - PreviousVoltage);
            // A step of 0, or one that is no number, would go on for ever where the resolution is not above 0.
            if (!(step >= Resolution && step > 0)) {
                line("We have reached the limits of resolution on this setpoint; setting final value[", BestValue,
                     "]; exiting");
                line("setting setpoint[", request_.IdxOfSetpointToAdjust, "] to [", BestValue, "]");
                return finish(MaxAb > 0 ? End::resolution_reached : End::target_never_reached, BestValue, MaxAb);
            }
            apply();
            if (measure_middle()) {
                note_probe();
                return finish(End::within_tolerance, Setpoint_Middle, MiddleAb);
            }
            move_bound(PreviousVoltage);
            note_probe();
        }
    }

protected:
    virtual void set_transients(double transients) { state_.current().write(transients_setpoint_, transients); }
    /// Puts the middle value on the instrument.
    virtual void apply() {
        state_.current().write(request_.IdxOfSetpointToAdjust, Setpoint_Middle);
        while (!state_.CheckInstrumentReadyState()) {
            state_.platform.clock->process_pending_events();
            state_.platform.clock->sleep_milliseconds(ready_poll_milliseconds);
            state_.raise_if_aborted();
        }
    }
    /// Leaves `MiddleAb` as it is where the measurement fails.
    virtual void measure() {
        bool averaging = false;
        collect([&] { averaging = state_.current().value(contract::setpoint.averaging) != 0; });
        collect([&] {
            MiddleAb = averaging ? state_.GetAveragedPeakAbundance(parser_, request_.mz, averaged_spectra)
                                 : to_int32(state_.GetPeakAbForThisMass(parser_, request_.mz));
        });
    }
    /// The capillary voltage is always searched to the limit of its resolution.
    virtual bool may_stop_early() {
        return request_.IdxOfSetpointToAdjust != state_.tune.GetSourceSpecificVCapSetpointIndex();
    }
    virtual void report_better() {}
    virtual std::string_view name() const { return search_name; }
    virtual std::string_view early_stop_range() const { return "20k Ab of target"; }

    template <class... Pieces>
    void line(const Pieces&... pieces) {
        search_line(state_, record_, pieces...);
    }
    /// Runs a statement of a probe: those after it run whether it fails or not, but after an abort. The last error is
    /// kept, but for a mere absence of peaks.
    template <class Statement>
    void collect(const Statement& statement) {
        if (is_aborted()) return;
        try {
            statement();
        } catch (...) {
            const Error error = current_error();
            if (!means_no_peaks(error)) pending_ = error;
        }
    }

    bool is_aborted() const { return pending_ && pending_->number() == error_number::user_aborted; }

    SpectrumParser& parser_;
    ParserState& state_;
    SearchRequest request_;  // its target is the scaled one once the search is prepared
    std::int32_t transients_setpoint_ = 0;
    double Setpoint_Middle = 0;
    std::int32_t MiddleAb = 0;

private:
    void prepare() {
        const std::int32_t index = request_.IdxOfSetpointToAdjust;
        BestValue = state_.current().value(index);
        SpeedUpFactor = state_.limit("Calibration", "AIC_SearchSpeedUpFactor");
        transients_setpoint_ = state_.tune.GetNumTransTuneSPForCurrentSamplingRate();
        OriginalNumTrans = state_.current().code(transients_setpoint_);
        set_transients(checked_quotient(OriginalNumTrans, SpeedUpFactor));
        request_.AbTarget /= SpeedUpFactor;
        state_.adjustment.scaled_target = request_.AbTarget;
        state_.adjustment.speed_up_factor = SpeedUpFactor;

        state_.search_log_is_on = is_search_log_chosen(state_);
        line(name(), "(IdxOfSetpointToAdjust[", index, "], mz[", request_.mz, "], AbTarget[", request_.AbTarget,
             "], dmz[", request_.dmz, "], bLowerThisSPToReduceAbundance[", request_.bLowerThisSPToReduceAbundance,
             "], StartingMinSPValue[", request_.StartingMinSPValue, "], StartingMaxSPValue[",
             request_.StartingMaxSPValue, "], SPResolution[", request_.SPResolution, "]");
        line("Original Setpoint value is ", state_.current().value(index));

        SetpointTable& table = state_.instrument->setpoints();
        Resolution = request_.SPResolution == search_value_not_given ? table.resolution(index) : request_.SPResolution;
        // Only the upper bound tells whether bounds are given: callers rely on a lone lower bound being ignored.
        const bool given = request_.StartingMaxSPValue != search_value_not_given;
        LowVoltage = given ? request_.StartingMinSPValue : table.lower_limit(index);
        HighVoltage = given ? request_.StartingMaxSPValue : table.upper_limit(index);
        Setpoint_Middle = LowVoltage;
    }

    /// Whether the search may stop at the value just measured. An error counts only where it may not; an abort always.
    bool measure_middle() {
        pending_.reset();
        bool stop = false;
        measure();
        collect([&] { stop = is_within_tolerance(); });
        if (stop || !pending_) return stop;
        line("error[", pending_->number(), "] in ", name(), "(): ", pending_->description(),
             "; rethrowing internally.");
        throw *pending_;
    }

    bool is_within_tolerance() {
        if (!may_stop_early()) return false;
        const double tolerance = state_.limit("Calibration", "BinarySearchAbTolerance");
        const double scaled_tolerance = tolerance * state_.tune.GetNumTransScalingFactor() / SpeedUpFactor;
        if (!(std::abs(request_.AbTarget - MiddleAb) < scaled_tolerance)) return false;
        line("We have found a value [v,ab]=[", Setpoint_Middle, ", ", MiddleAb, "] within ", early_stop_range(),
             "; exiting");
        return true;
    }

    void move_bound(double PreviousVoltage) {
        const bool is_above = MiddleAb > request_.AbTarget;
        if (!is_above && MiddleAb > MaxAb) {
            report_better();
            BestValue = Setpoint_Middle;
            MaxAb = MiddleAb;
        }
        const bool move_high = is_above == request_.bLowerThisSPToReduceAbundance;
        line("AbTarget[", request_.AbTarget, "], MiddleAb[", MiddleAb, "], PreviousVoltage[", PreviousVoltage,
             "], Setpoint_Middle[", Setpoint_Middle, "], HighVoltage[", HighVoltage, "], LowVoltage[", LowVoltage,
             "] ==> Moving ", move_high ? "High_Boundary down" : "Low_Boundary up");
        (move_high ? HighVoltage : LowVoltage) = Setpoint_Middle;
    }

    void note_probe() {
        auto& probes = state_.adjustment.probes;
        probes.push_back({static_cast<std::int32_t>(probes.size()) + 1, Setpoint_Middle, static_cast<double>(MiddleAb),
                          LowVoltage, HighVoltage});
        if (state_.on_adjust_probe) state_.on_adjust_probe(probes.back());
    }

    double finish(End end, double value, std::int32_t abundance) {
        line("setting setpoint[", transients_setpoint_, "] to [", OriginalNumTrans, "]");
        set_transients(OriginalNumTrans);
        state_.adjustment.end = end;
        state_.adjustment.value = value;
        state_.adjustment.abundance = abundance;
        return value;
    }

    TraceObj& record_;
    double LowVoltage = 0, HighVoltage = 0, Resolution = 0, BestValue = 0, SpeedUpFactor = 1;
    std::int32_t MaxAb = 0, OriginalNumTrans = 0;
    std::optional<Error> pending_;
};

/// Straight to the instrument firmware, without a wait; measurements far off the target are repeated.
class FastSearch final : public Search {
public:
    using Search::Search;

private:
    void set_transients(double transients) override {
        state_.tune.SetMSSetpointValueByIdx(transients_setpoint_, transients);
    }
    void apply() override {
        line("Making direct call to FW...");
        const std::int32_t status =
            state_.instrument->firmware().write(contract::firmware_channel.quad_amu, to_single(Setpoint_Middle));
        line("Direct call returned [", status, "]");
        report_channel("(baseline): ");
    }
    void measure() override {
        discard_spectrum();
        line("1st MiddleAb = ", MiddleAb);
        discard_spectrum();
        measure_once("1st MiddleAb = ");
        collect([&] { report_channel("after GetPeakInfos(): "); });
        collect([&] {
            for (int repetition = 1;
                 !is_aborted() && deviation() > far_off_the_target && repetition <= most_repetitions; ++repetition) {
                measure_once("resampled MiddleAb = ");
                line("Abs(AbTarget[", request_.AbTarget, "] - MiddleAb[", MiddleAb, ") / AbTarget[", request_.AbTarget,
                     "] = ", deviation());
                collect([&] { report_channel("after GetPeakInfos(): "); });
            }
        });
    }
    bool may_stop_early() override { return true; }
    std::string_view name() const override { return fast_search_name; }
    std::string_view early_stop_range() const override { return "close range of Ab target"; }
    void report_better() override {
        line("Better Ab found: New MaxSPValue, MaxAb = [", Setpoint_Middle, ", ", MiddleAb, "]");
    }

    void report_channel(std::string_view label) {
        line("Current QuadAMU value in FW ", label,
             state_.instrument->firmware().read(contract::firmware_channel.quad_amu));
    }
    void discard_spectrum() {
        collect([&] {
            AcquiredSpectrum unused;
            bool bUserHasCancelledRampInGUI = false;
            parser_.GetNewSpectrumAndVerifyDataIsPopulated(unused.mass_data, unused.y_data, unused.meta_data,
                                                           unused.start_time_ns, bUserHasCancelledRampInGUI);
        });
        collect([&] { report_channel("after GetNewSpectrum(): "); });
    }
    void measure_once(std::string_view label) {
        collect([&] { MiddleAb = to_int32(state_.GetPeakAbForThisMass(parser_, request_.mz)); });
        line(label, MiddleAb);
    }
    double deviation() const { return checked_quotient(std::abs(request_.AbTarget - MiddleAb), request_.AbTarget); }
};

}  // namespace

bool SpectrumParser::Impl::CheckInstrumentReadyState() {
    return routine(trace, no_line, [&](TraceObj& record) {
        if (prefs.GetTunePreference("WaitForReady_SkipAll") == "Yes") return true;
        const double not_ready_state = to_double(
            instrument->actual_value(contract::instrument_register.not_ready_state, contract::not_ready_state_type));
        if (prefs.GetTunePreference("WaitDialogHandlesRunStateAlso") != "Yes") {
            record.TR_PRINT("NrdyState is ", not_ready_state);
            return whole(not_ready_state, contract::instrument_register.not_ready_state) >= 0;
        }
        const double run_state =
            to_double(instrument->actual_value(contract::instrument_register.run_state, contract::run_state_type));
        const std::int16_t not_ready = whole(not_ready_state, contract::instrument_register.not_ready_state);
        if (not_ready >= 0) return true;
        const std::int16_t running = whole(run_state, contract::instrument_register.run_state);
        record.TR_PRINT("Waiting: NReady[", not_ready, "], RunState[", running, "]");
        return false;
    });
}

std::int32_t SpectrumParser::Impl::GetAveragedPeakAbundance(SpectrumParser& parser, double mz, std::int32_t spectra) {
    return routine(trace, no_line, [&] {
        double sum = 0;
        for (std::int32_t i = 0; i < spectra; ++i) sum += GetPeakAbForThisMass(parser, mz);
        return to_int32(checked_quotient(sum, spectra));
    });
}

double SpectrumParser::BinaryAdjustAbundanceDownUsingThisSetpoint(std::int32_t IdxOfSetpointToAdjust, double mz,
                                                                  double AbTarget, double dmz,
                                                                  bool bLowerThisSPToReduceAbundance,
                                                                  double StartingMinSPValue, double StartingMaxSPValue,
                                                                  double SPResolution) {
    Impl& state = *impl_;
    state.adjustment = {};
    state.search_log_is_on.reset();
    const SearchRequest request{
        IdxOfSetpointToAdjust, mz,          AbTarget, dmz, bLowerThisSPToReduceAbundance, StartingMinSPValue,
        StartingMaxSPValue,    SPResolution};
    const auto report_error = [&](TraceObj& record, RoutineName name, const Error& error) {
        // An error before the preference was read.
        if (!state.search_log_is_on) try {
                state.search_log_is_on = is_search_log_chosen(state);
            } catch (const Error&) {
                state.search_log_is_on = false;
            }
        search_line(state, record, "Error[", error.number(), "] in ", name.name, "(): ", error.description());
    };
    return routine(state.trace, {search_name}, report_error, [&](TraceObj& record) {
        const bool is_fast =
            state.fast_choice ? *state.fast_choice : state.prefs.GetTunePreference("AIC_RunFastVersion") == "Yes";
        if (!is_fast) return Search(*this, state, record, request).run();
        return routine(state.trace, {fast_search_name}, report_error,
                       [&](TraceObj& fast_record) { return FastSearch(*this, state, fast_record, request).run(); });
    });
}

void SpectrumParser::on_adjust_probe(std::function<void(const AdjustProbe&)> observer) {
    impl_->on_adjust_probe = std::move(observer);
}

const AdjustOutcome& SpectrumParser::last_adjustment() const {
    return impl_->adjustment;
}

void SpectrumParser::set_fast_search(std::optional<bool> fast) {
    impl_->fast_choice = fast;
}

}  // namespace korvane
