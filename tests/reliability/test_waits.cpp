// Every wait on every instrument: none outlives its limit by more than a poll, and each sees an abort within two.
#include <gtest/gtest.h>

#include <cmath>
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
    /// Longest time between two spectra that are populated; none where none ever is.
    std::optional<double> populated_every_seconds;
    /// When what is sought is shown for good, or at the latest again and again; none where it never is.
    std::optional<double> sought_after_seconds;
};

std::vector<WaitBehaviour> wait_behaviours() {
    const auto always = [](Shown shown) { return [shown](double, int) { return shown; }; };
    const auto after = [](double seconds, Shown before) {
        return [=](double now, int) { return now < seconds ? before : Shown::sought; };
    };
    const auto chattering = [](double, int request) {
        return request % 5 == 4 ? Shown::sought : request % 2 ? Shown::other : Shown::nothing;
    };
    const auto seldom = [](double, int request) { return request % 4 == 3 ? Shown::other : Shown::nothing; };
    return {
        {"ready", 0.2, always(Shown::sought), 0.2, 0},
        {"silent", 0.1, always(Shown::nothing), {}, {}},
        {"silent and slow", 7, always(Shown::nothing), {}, {}},
        {"silent for minutes", 100, always(Shown::nothing), {}, {}},
        {"slow, never the sought", 7, always(Shown::other), 7, {}},
        {"never the sought", 0.3, always(Shown::other), 0.3, {}},
        {"late out of silence", 0.3, after(12, Shown::nothing), 0.3, 12},
        {"late", 0.3, after(40, Shown::other), 0.3, 40},
        {"too late", 0.7, after(100, Shown::other), 0.7, 100},
        {"chattering", 0.4, chattering, 0.8, 60},
        {"chattering, never the sought", 1, seldom, 4, {}},
    };
}

enum class Behaves { nothing, spectra, registers };

/// An instrument of that behaviour, with a calibrant, a setpoint "Lens" and both registers that waits ask for.
struct WaitWorld {
    WaitWorld(const WaitBehaviour& chosen, double start_second) : behaviour(chosen) {
        world.test.trace().on = false;
        *world.test.clock = VirtualClock(start_second);
        ScriptedState& instrument = world.instrument();
        instrument.meta_description = std::vector<std::string>{"Experiment", "Polarity (S)", "Gas"};
        instrument.acquire = [this](AcquiredSpectrum& spectrum, int) { acquire(spectrum); };
        instrument.metadata_items = [this] { return metadata(); };
        instrument.on_call = [this](int) { answer_registers(); };
        begin(Behaves::nothing);
    }

    double now() const { return world.test.clock->total_seconds(); }
    /// Behaves from now on.
    void begin(Behaves what) {
        behaves = what;
        start = now();
        requests = 0;
    }

    SpectrumWorld world;
    const WaitBehaviour behaviour;
    double start = 0;
    int requests = 0;
    Behaves behaves = Behaves::nothing;
    /// Called whenever the client hands control to the instrument or to pending events.
    std::function<void()> on_turn = [] {};

private:
    Shown next_shown() {
        on_turn();
        world.test.clock->advance(behaves == Behaves::spectra ? behaviour.spectrum_seconds : 0.1);
        on_turn();
        return behaves == Behaves::spectra ? behaviour.shown(now() - start, requests++) : Shown::sought;
    }
    void acquire(AcquiredSpectrum& spectrum) {
        const Shown shown = next_shown();
        if (shown == Shown::nothing) return;
        world.fill(spectrum);
        const auto sought = static_cast<std::int32_t>(world.instrument().setpoint(119).value);
        const std::int32_t polarity = shown == Shown::sought ? sought : 1 - sought;
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity, 0});
    }
    std::vector<MetaItem> metadata() {
        const Shown shown = next_shown();
        if (shown == Shown::nothing) return {};
        const double set = world.instrument().setpoint(SpectrumWorld::adjustable_setpoint).value;
        return {{"Lens", shown == Shown::sought ? set : set + 7}};
    }
    void answer_registers() {
        on_turn();
        const bool ready = behaves != Behaves::registers || behaviour.shown(now() - start, requests++) == Shown::sought;
        world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = ready ? 0 : -3;
        world.instrument().registers["REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"] = ready ? 1 : 3;
    }
};

struct Wait {
    std::string name;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    Behaves behaves;
    /// The limit; none where the wait lasts until the instrument is ready.
    std::optional<double> limit_seconds;
    /// Longest time from one look at the abort flag to the next.
    std::function<double(const WaitBehaviour&)> poll_seconds;
    /// Numbers of the errors that tell that the time is up.
    std::set<std::int32_t> time_out_numbers = {};
    /// Longest time between two ends of a poll; the abort poll where it is left out.
    std::function<double(const WaitBehaviour&)> overrun_seconds = {};
};

std::function<double(const WaitBehaviour&)> poll(double spectra, double other_seconds) {
    return [=](const WaitBehaviour& behaviour) { return spectra * behaviour.spectrum_seconds + other_seconds; };
}
/// A poll of the polarity wait ends with a populated spectrum, or with the 15 s after which none is waited for.
double populated_spectrum(const WaitBehaviour& behaviour) {
    return behaviour.populated_every_seconds.value_or(15) + 2 * behaviour.spectrum_seconds;
}

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

const std::vector<Wait>& waits() {
    using enum Behaves;
    constexpr double sleep = 0.5;
    const auto peaks = [](auto& parser, auto&) { parser.GetPeakInfoForCalibrantMasses(); };
    const auto lists = [](auto& parser, auto&) { parser.GetPeakListsForCalibrantMasses(); };
    const auto seconds = [](auto&, auto& globals) { globals.WaitThisManySeconds(30); };
    const auto meta_value = [](auto&, auto& globals) { globals.GetMetaValue("Lens"); };
    static const std::vector<Wait> all{
        {"new spectrum", get_new_spectrum, spectra, 15, poll(2, 0), {5}},
        {"calibrant peaks", peaks, spectra, 45, poll(2, 0), {5, -8}, populated_spectrum},
        {"calibrant lists", lists, spectra, 45, poll(2, 0), {5, -8}, populated_spectrum},
        {"search, until ready", search_with(false), registers, {}, poll(0, sleep + 0.4)},
        {"timed", seconds, nothing, 30, poll(0, sleep)},
        {"after a write", set_lens(30, false), nothing, 30, poll(0, sleep)},
        {"until set", set_lens(0, true), spectra, 15, poll(1, sleep), {-807}},
        {"until set, once in pre-run", set_lens(0, true), registers, 15, poll(0, sleep + 0.1), {-807}},
        {"metadata, once in pre-run", meta_value, registers, {}, poll(0, sleep + 0.1)},
    };
    return all;
}

struct Attempt {
    Attempt(const Wait& chosen, const WaitBehaviour& behaviour, double start_second)
        : wait(chosen), world(behaviour, start_second) {}

    /// Number of the error; 0 without one.
    std::int32_t run() {
        world.begin(wait.behaves);
        const std::int32_t number = error_of([&] { wait.run(parser, globals); }).number();
        seconds = world.now() - world.start;
        return number;
    }

    const Wait& wait;
    WaitWorld world;
    SpectrumParser parser{world.world.platform()};
    TuneGlobals globals{world.world.platform()};
    double seconds = 0;
};

/// Time by which the wait has to be over.
double latest_end(const Wait& wait, const WaitBehaviour& behaviour) {
    const auto& overrun = wait.overrun_seconds ? wait.overrun_seconds : wait.poll_seconds;
    return wait.limit_seconds.value_or(behaviour.sought_after_seconds.value_or(0)) + overrun(behaviour);
}

TEST(EveryWait, EndsWithinAPollOfItsLimitOnEveryInstrumentAtAnyTimeOfDay) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> late(86330, 86400);
    int attempts = 0, time_outs = 0;
    for (const Wait& wait : waits())
        for (const WaitBehaviour& behaviour : wait_behaviours()) {
            if (!wait.limit_seconds && !behaviour.sought_after_seconds) continue;
            // Far from midnight, on it, before it by less than any limit, and two moments of chance.
            for (const double start : {0.0, 36000.0, 86399.9, 86400 - 7.25, 86400 - 44.5, late(random), late(random)}) {
                SCOPED_TRACE(wait.name + ", " + behaviour.name + ", from " + std::to_string(start));
                Attempt attempt(wait, behaviour, start);
                const std::int32_t number = attempt.run();
                ++attempts;
                EXPECT_LE(attempt.seconds, latest_end(wait, behaviour) + 1e-6);
                if (number == 0) continue;
                ++time_outs;
                EXPECT_TRUE(wait.time_out_numbers.contains(number)) << "error " << number;
                // Error 5 of the polarity wait is that of a spectrum that did not come within 15 s.
                EXPECT_GT(attempt.seconds, (number == 5 ? 15 : *wait.limit_seconds) - 1e-6) << "given up too early";
            }
        }
    std::cout << attempts << " waits, " << time_outs << " timed out\n";
    EXPECT_GT(time_outs, attempts / 4);
    EXPECT_LT(time_outs, attempts * 3 / 4);
}

struct AbortTally {
    int requested = 0, aborted = 0;
};

void abort_at(const Wait& wait, const WaitBehaviour& behaviour, double moment, double start, AbortTally& tally) {
    SCOPED_TRACE(wait.name + ", " + behaviour.name + ", from " + std::to_string(start) + ", abort after " +
                 std::to_string(moment));
    Attempt attempt(wait, behaviour, start);
    WaitWorld& world = attempt.world;
    std::optional<double> requested;
    world.on_turn = [&] {
        if (requested || world.now() - world.start < moment) return;
        requested = world.now();
        world.world.request_abort();
    };
    world.world.test.clock->on_events = world.on_turn;
    const std::int32_t number = attempt.run();
    const bool is_endless = !wait.limit_seconds && wait.time_out_numbers.empty() && !behaviour.sought_after_seconds;
    EXPECT_TRUE(requested || !is_endless) << "given up by itself";
    if (!requested) return;
    ++tally.requested;
    tally.aborted += number == error_number::user_aborted;
    EXPECT_LE(world.now() - *requested, 2 * wait.poll_seconds(behaviour) + 1e-6) << "ended with " << number;
    EXPECT_TRUE(number == 0 || number == error_number::user_aborted || wait.time_out_numbers.contains(number))
        << "error " << number;
}

TEST(EveryWait, SeesAnAbortWithinTwoPollsWheneverItComes) {
    std::mt19937 random(2);
    AbortTally tally;
    for (const Wait& wait : waits())
        for (const WaitBehaviour& behaviour : wait_behaviours())
            for (int i = 0; i < 8; ++i) {
                const double longest = wait.limit_seconds ? latest_end(wait, behaviour) : 200;
                const double moment = i == 0 ? 0 : std::uniform_real_distribution<double>(0, longest)(random);
                abort_at(wait, behaviour, moment, i % 2 ? 36000 : 86400 - longest / 2, tally);
            }
    std::cout << tally.requested << " aborts asked for, " << tally.aborted << " seen before the wait ended anyway\n";
    EXPECT_GT(tally.aborted, 300);
    EXPECT_GT(tally.aborted, tally.requested / 2);
}

TEST(FastSearch, OnAnInstrumentThatFallsSilentIsAbortedWithinTwoPollsAndEndsByItself) {
    const Wait search{"fast search", search_with(true), Behaves::spectra, {}, poll(2, 0), {5, -8}};
    for (const WaitBehaviour& behaviour : wait_behaviours()) {
        AbortTally tally;
        for (const double moment : {0.0, 3.3, 20.0, 61.7, 1e9}) abort_at(search, behaviour, moment, 86400 - 30, tally);
        Attempt undisturbed(search, behaviour, 86400 - 30);
        undisturbed.run();
        // Two spectra and five measurements, each with its own limit.
        EXPECT_LE(undisturbed.seconds,
                  2 * (15 + 2 * behaviour.spectrum_seconds) + 5 * (45 + populated_spectrum(behaviour)));
    }
}

}  // namespace
}  // namespace korvane
