// Every wait on every instrument: none outlives its limit by more than a poll, and each sees an abort within two.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {
namespace {

enum class Shown { nothing, other, sought };

/// What the instrument shows, by the seconds since the start and the number of the request; every spectrum takes
/// `spectrum_seconds`.
struct WaitBehaviour {
    std::string name;
    double spectrum_seconds;
    std::function<Shown(double seconds, int request)> shown;
    /// Longest time between two spectra that are populated; 15, after which a poll is given up, where none ever is.
    double populated_every_seconds;
    /// When what is sought is shown for good, or at the latest again and again; none where it never is.
    std::optional<double> sought_after_seconds;
};

std::vector<WaitBehaviour> wait_behaviours() {
    using enum Shown;
    const auto after = [](double seconds, Shown before) {
        return [=](double now, int) { return now < seconds ? before : sought; };
    };
    const auto chattering = [](double, int request) {
        return request % 5 == 4 ? sought : request % 2 ? other : nothing;
    };
    return {
        {"ready", 0.2, after(0, nothing), 0.2, 0},
        {"silent", 0.1, after(1e9, nothing), 15, {}},
        {"silent for minutes", 100, after(1e9, nothing), 15, {}},
        {"slow, never the sought", 7, after(1e9, other), 7, {}},
        {"never the sought", 0.3, after(1e9, other), 0.3, {}},
        {"late out of silence", 0.3, after(12, nothing), 0.3, 12},
        {"late", 0.3, after(40, other), 0.3, 40},
        {"too late", 0.7, after(100, other), 0.7, 100},
        {"chattering", 0.4, chattering, 0.8, 60},
    };
}

enum class Behaves { nothing, spectra, registers };

struct Wait {
    std::string name;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    Behaves behaves;
    /// The limit; none where the wait lasts until the instrument is ready.
    std::optional<double> limit_seconds;
    /// Longest time from one look at the abort flag to the next: so many spectra, and so many seconds.
    double poll_spectra, poll_seconds;
    /// Numbers of the errors that tell that the time is up.
    std::set<std::int32_t> time_out_numbers = {};
    /// So many polls of the polarity wait end only with a populated spectrum, or when none is waited for any longer.
    int populated_polls = 0;

    double poll(const WaitBehaviour& on) const { return poll_spectra * on.spectrum_seconds + poll_seconds; }
    /// Time by which it has to be over.
    double latest_end(const WaitBehaviour& on) const {
        const double overrun = populated_polls * (on.populated_every_seconds + 2 * on.spectrum_seconds);
        return limit_seconds.value_or(on.sought_after_seconds.value_or(0)) + poll(on) + overrun;
    }
};

void get_new_spectrum(SpectrumParser& parser, TuneGlobals&) {
    VariantArray<double> masses, samples;
    VariantArray<InstrumentValue> metadata;
    double start_ns = 0;
    bool cancelled = false;
    parser.GetNewSpectrumAndVerifyDataIsPopulated(masses, samples, metadata, start_ns, cancelled);
}
auto search_with(bool fast) {
    return [fast](SpectrumParser& parser, TuneGlobals&) {
        parser.set_fast_search(fast);
        parser.BinaryAdjustAbundanceDownUsingThisSetpoint(SpectrumWorld::adjustable_setpoint, 900, 90000, 30, true, 0,
                                                          100, 40);
    };
}
auto set_lens(float seconds, bool until_set) {
    return [=](SpectrumParser&, TuneGlobals& globals) {
        globals.SetMSSetpointValueByIdx(SpectrumWorld::adjustable_setpoint, 20, 0, seconds, until_set);
    };
}

std::vector<Wait> waits() {
    using enum Behaves;
    const auto peaks = [](auto& parser, auto&) { parser.GetPeakInfoForCalibrantMasses(); };
    const auto seconds = [](auto&, auto& globals) { globals.WaitThisManySeconds(30); };
    const auto meta_value = [](auto&, auto& globals) { globals.GetMetaValue("Lens"); };
    return {
        {"new spectrum", get_new_spectrum, spectra, 15, 2, 0, {5}},
        {"calibrant peaks", peaks, spectra, 45, 2, 0, {5, -8}, 1},
        {"search, until ready", search_with(false), registers, {}, 0, 0.9},
        // Two spectra and five measurements, each with its own limit.
        {"fast search", search_with(true), spectra, 2 * 15 + 5 * 45, 2, 0, {5, -8}, 5},
        {"timed", seconds, nothing, 30, 0, 0.5},
        {"after a write", set_lens(30, false), nothing, 30, 0, 0.5},
        {"until set", set_lens(0, true), spectra, 15, 1, 0.5, {-807}},
        {"until set, once in pre-run", set_lens(0, true), registers, 15, 0, 0.6, {-807}},
        {"metadata, once in pre-run", meta_value, registers, {}, 0, 0.6},
    };
}

/// An instrument of that behaviour, with a calibrant, a setpoint "Lens" and both registers that waits ask for.
class WaitWorld {
public:
    WaitWorld(const Wait& wait, const WaitBehaviour& chosen, double start_second, double abort_after)
        : behaviour_(chosen), abort_after_(abort_after) {
        world_.test.trace().on = false;
        *clock_ = VirtualClock(start_second);
        ScriptedState& instrument = world_.instrument();
        instrument.meta_description = std::vector<std::string>{"Experiment", "Polarity (S)", "Gas"};
        instrument.acquire = [this](AcquiredSpectrum& spectrum, int) { acquire(spectrum); };
        instrument.metadata_items = [this] { return metadata(); };
        instrument.on_call = [this](int) { answer_registers(); };
        clock_->on_events = [this] { turn(); };
        SpectrumParser parser(world_.platform());
        TuneGlobals globals(world_.platform());
        behaves_ = wait.behaves;
        start_ = clock_->total_seconds();
        number = error_of([&] { wait.run(parser, globals); }).number();
        seconds = elapsed();
    }

    std::int32_t number = 0;          ///< of the error; 0 without one
    double seconds = 0;               ///< that the wait took
    std::optional<double> requested;  ///< when the abort was, if the wait came so far

private:
    double elapsed() const { return clock_->total_seconds() - start_; }
    /// Whenever the client hands control to the instrument or to pending events.
    void turn() {
        if (requested || start_ < 0 || elapsed() < abort_after_) return;
        requested = elapsed();
        world_.request_abort();
    }
    Shown next_shown() {
        turn();
        const bool slow = behaves_ == Behaves::spectra;
        clock_->advance(slow ? behaviour_.spectrum_seconds : 0.1);
        turn();
        return slow ? behaviour_.shown(elapsed(), requests_++) : Shown::sought;
    }
    void acquire(AcquiredSpectrum& spectrum) {
        const Shown shown = next_shown();
        if (shown == Shown::nothing) return;
        world_.fill(spectrum);
        const auto sought = static_cast<std::int32_t>(world_.instrument().setpoint(119).value);
        const std::int32_t polarity = shown == Shown::sought ? sought : 1 - sought;
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity, 0});
    }
    std::vector<MetaItem> metadata() {
        const Shown shown = next_shown();
        if (shown == Shown::nothing) return {};
        const double set = world_.instrument().setpoint(SpectrumWorld::adjustable_setpoint).value;
        return {{"Lens", shown == Shown::sought ? set : set + 7}};
    }
    void answer_registers() {
        turn();
        const bool ready = behaves_ != Behaves::registers || behaviour_.shown(elapsed(), requests_++) == Shown::sought;
        world_.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = ready ? 0 : -3;
        world_.instrument().registers["REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"] = ready ? 1 : 3;
    }

    SpectrumWorld world_;
    std::shared_ptr<VirtualClock> clock_ = world_.test.clock;
    WaitBehaviour behaviour_;
    double abort_after_, start_ = -1;
    int requests_ = 0;
    Behaves behaves_ = Behaves::nothing;
};

TEST(EveryWait, EndsWithinAPollOfItsLimitAndWithinTwoOfAnAbortAtAnyTimeOfDay) {
    static const std::map<std::int32_t, double> given_up_after_seconds{{5, 15}, {-8, 45}, {-807, 15}};
    std::mt19937 random(1);
    const auto chance = [&](double least, double most) {
        return std::uniform_real_distribution<double>(least, most)(random);
    };
    int undisturbed = 0, time_outs = 0, requested = 0, aborted = 0;
    for (const Wait& wait : waits())
        for (const WaitBehaviour& behaviour : wait_behaviours()) {
            const bool ends_by_itself = wait.limit_seconds || behaviour.sought_after_seconds;
            const double longest = ends_by_itself ? wait.latest_end(behaviour) : 200;
            // Far from midnight, on it, before it by less than any limit, and a moment of chance; then with an abort.
            for (int i = 0; i < 10; ++i) {
                const double starts[]{36000, 0, 86399.9, 86400 - 44.5, chance(86330, 86400)};
                const double start = i % 2 ? starts[i / 2] : 86400 - longest / 2;
                const double moment = i < 5 ? 1e9 : i == 5 ? 0 : chance(0, longest);
                if (i < 5 && !ends_by_itself) continue;
                SCOPED_TRACE(text_of(wait.name, ", ", behaviour.name, ", from ", start, ", abort after ", moment));
                const WaitWorld world(wait, behaviour, start, moment);
                const bool told = world.number == error_number::user_aborted;
                EXPECT_TRUE(world.number == 0 || told || wait.time_out_numbers.contains(world.number)) << world.number;
                EXPECT_LE(world.seconds,
                          (world.requested ? *world.requested + 2 * wait.poll(behaviour) : longest) + 1e-6)
                    << "ended with " << world.number;
                EXPECT_TRUE(world.requested || ends_by_itself) << "given up by itself";
                if (given_up_after_seconds.contains(world.number)) {
                    EXPECT_GT(world.seconds, given_up_after_seconds.at(world.number) - 1e-6) << "given up too early";
                }
                undisturbed += !world.requested;
                time_outs += !world.requested && world.number != 0;
                requested += world.requested.has_value();
                aborted += told;
            }
        }
    std::cout << undisturbed << " waits, " << time_outs << " timed out; " << requested << " aborts asked for, "
              << aborted << " seen before the wait ended anyway\n";
    EXPECT_GT(time_outs, undisturbed / 5);
    EXPECT_GT(aborted, requested / 2);
}

}  // namespace
}  // namespace korvane
