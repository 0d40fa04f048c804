// Every wait on every instrument: none outlives its limit by more than a poll, and each sees an abort within two.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "reliability/wait_behaviours.h"

namespace korvane {
namespace {

constexpr double sleep_seconds = 0.5;
constexpr int lens = SpectrumWorld::adjustable_setpoint;

struct Wait {
    std::string name;
    std::function<void(SpectrumParser&, TuneGlobals&)> run;
    /// What behaves: the spectra, the registers, or neither.
    bool spectra = false, registers = false;
    /// The limit; none where the wait lasts until the instrument is ready.
    std::optional<double> limit_seconds;
    /// Longest time from one look at the abort flag to the next, spectra of that many seconds and that far apart.
    std::function<double(const WaitBehaviour&)> poll_seconds;
    /// Numbers of the errors that tell that the time is up.
    std::vector<std::int32_t> time_out_numbers = {};
    /// Longest time between two ends of a poll; the abort poll where it is left out.
    std::function<double(const WaitBehaviour&)> overrun_seconds = {};
};

double spectrum_pair(const WaitBehaviour& behaviour) {
    return 2 * behaviour.spectrum_seconds;
}
double spectrum_and_sleep(const WaitBehaviour& behaviour) {
    return behaviour.spectrum_seconds + sleep_seconds;
}
double sleep_only(const WaitBehaviour&) {
    return sleep_seconds;
}
/// A poll of the polarity wait ends with a populated spectrum, or with the 15 s after which none is waited for.
double populated_spectrum(const WaitBehaviour& behaviour) {
    return behaviour.populated_every_seconds.value_or(15) + spectrum_pair(behaviour);
}

const std::vector<Wait>& waits() {
    static const std::vector<Wait> all{
        {"new spectrum",
         [](SpectrumParser& parser, TuneGlobals&) {
             VariantArray<double> masses, samples;
             VariantArray<InstrumentValue> metadata;
             double start_ns = 0;
             bool cancelled = false;
             parser.GetNewSpectrumAndVerifyDataIsPopulated(masses, samples, metadata, start_ns, cancelled);
         },
         true,
         false,
         15,
         spectrum_pair,
         {5}},
        {"calibrant peaks",
         [](SpectrumParser& parser, TuneGlobals&) { parser.GetPeakInfoForCalibrantMasses(); },
         true,
         false,
         45,
         spectrum_pair,
         {5, -8},
         populated_spectrum},
        {"calibrant lists",
         [](SpectrumParser& parser, TuneGlobals&) { parser.GetPeakListsForCalibrantMasses(); },
         true,
         false,
         45,
         spectrum_pair,
         {5, -8},
         populated_spectrum},
        {"search, until ready",
         [](SpectrumParser& parser, TuneGlobals&) {
             parser.BinaryAdjustAbundanceDownUsingThisSetpoint(lens, 900, 90000, 30, true, 0, 100, 40);
         },
         false,
         true,
         {},
         [](const WaitBehaviour&) { return sleep_seconds + 0.4; }},
        {"timed", [](SpectrumParser&, TuneGlobals& globals) { globals.WaitThisManySeconds(30); }, false, false, 30,
         sleep_only},
        {"after a write",
         [](SpectrumParser&, TuneGlobals& globals) { globals.SetMSSetpointValueByIdx(lens, 20, 0, 30); }, false, false,
         30, sleep_only},
        {"until set",
         [](SpectrumParser&, TuneGlobals& globals) { globals.SetMSSetpointValueByIdx(lens, 20, 0, 0, true); },
         true,
         false,
         15,
         spectrum_and_sleep,
         {-807}},
        {"until set, once in pre-run",
         [](SpectrumParser&, TuneGlobals& globals) { globals.SetMSSetpointValueByIdx(lens, 20, 0, 0, true); },
         false,
         true,
         15,
         [](const WaitBehaviour&) { return sleep_seconds + 0.1; },
         {-807}},
        {"metadata, once in pre-run",
         [](SpectrumParser&, TuneGlobals& globals) { globals.GetMetaValue("Lens"); },
         false,
         true,
         {},
         [](const WaitBehaviour&) { return sleep_seconds + 0.1; }},
    };
    return all;
}

struct Ended {
    std::int32_t number = 0;
    double seconds = 0;
};

struct Attempt {
    Attempt(const Wait& chosen, const WaitBehaviour& behaviour, double start_second)
        : wait(chosen), world(behaviour, start_second) {}

    Ended run() {
        world.begin(wait.spectra, wait.registers);
        const double before = world.now();
        const Error error = error_of([&] { wait.run(parser, globals); });
        return {error.number(), world.now() - before};
    }

    const Wait& wait;
    WaitWorld world;
    SpectrumParser parser{world.world.platform()};
    TuneGlobals globals{world.world.platform()};
};

/// Far from midnight, on it, before it by less than any limit, and a few moments of chance.
std::vector<double> start_seconds(std::mt19937& random) {
    std::vector<double> starts{0, 36000, 86399.9, 86400 - 7.25, 86400 - 44.5};
    for (int i = 0; i < 2; ++i) starts.push_back(std::uniform_real_distribution<double>(86330, 86400)(random));
    return starts;
}

bool is_among(std::int32_t number, const std::vector<std::int32_t>& numbers) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

/// Time by which the wait has to be over.
double latest_end(const Wait& wait, const WaitBehaviour& behaviour) {
    const double poll = (wait.overrun_seconds ? wait.overrun_seconds : wait.poll_seconds)(behaviour);
    return wait.limit_seconds.value_or(behaviour.sought_after_seconds.value_or(0)) + poll;
}

TEST(EveryWait, EndsWithinAPollOfItsLimitOnEveryInstrumentAtAnyTimeOfDay) {
    std::mt19937 random(1);
    int attempts = 0, time_outs = 0;
    for (const Wait& wait : waits())
        for (const WaitBehaviour& behaviour : wait_behaviours()) {
            const bool ends = wait.limit_seconds || behaviour.sought_after_seconds;
            if (!ends) continue;
            for (const double start : start_seconds(random)) {
                SCOPED_TRACE(wait.name + ", " + behaviour.name + ", from " + std::to_string(start));
                const Ended ended = Attempt(wait, behaviour, start).run();
                ++attempts;
                EXPECT_LE(ended.seconds, latest_end(wait, behaviour) + 1e-6);
                if (ended.number == 0) continue;
                ++time_outs;
                EXPECT_TRUE(is_among(ended.number, wait.time_out_numbers)) << "error " << ended.number;
                // Error 5 of the polarity wait is that of a spectrum that did not come within 15 s.
                const double least = ended.number == 5 ? 15 : *wait.limit_seconds;
                EXPECT_GT(ended.seconds, least - 1e-6) << "given up too early";
                EXPECT_TRUE(wait.spectra || wait.registers) << "a timed wait cannot time out";
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
    std::optional<double> requested;
    const auto turn = [&] {
        if (requested || attempt.world.seconds() < moment) return;
        requested = attempt.world.now();
        attempt.world.world.request_abort();
    };
    attempt.world.on_turn = turn;
    attempt.world.world.test.clock->on_events = turn;
    const Ended ended = attempt.run();
    const bool is_endless = !wait.limit_seconds && wait.time_out_numbers.empty() && !behaviour.sought_after_seconds;
    EXPECT_TRUE(requested || !is_endless) << "given up by itself";
    if (!requested) return;
    ++tally.requested;
    tally.aborted += ended.number == error_number::user_aborted;
    EXPECT_LE(attempt.world.now() - *requested, 2 * wait.poll_seconds(behaviour) + 1e-6)
        << "ended with " << ended.number;
    const bool explained = ended.number == 0 || ended.number == error_number::user_aborted ||
                           is_among(ended.number, wait.time_out_numbers);
    EXPECT_TRUE(explained) << "error " << ended.number;
}

TEST(EveryWait, SeesAnAbortWithinTwoPollsWheneverItComes) {
    std::mt19937 random(2);
    AbortTally tally;
    for (const Wait& wait : waits())
        for (const WaitBehaviour& behaviour : wait_behaviours())
            for (int i = 0; i < 8; ++i) {
                const double longest = wait.limit_seconds ? latest_end(wait, behaviour) : 200;
                const double moment = i == 0 ? 0 : std::uniform_real_distribution<double>(0, longest)(random);
                const double start = i % 2 ? 36000 : 86400 - longest / 2;
                abort_at(wait, behaviour, moment, start, tally);
            }
    std::cout << tally.requested << " aborts asked for, " << tally.aborted << " seen before the wait ended anyway\n";
    EXPECT_GT(tally.aborted, 300);
    EXPECT_GT(tally.aborted, tally.requested / 2);
}

TEST(FastSearch, OnAnInstrumentThatFallsSilentIsAbortedWithinTwoPollsAndEndsByItself) {
    for (const WaitBehaviour& behaviour : wait_behaviours())
        for (const double moment : {0.0, 3.3, 20.0, 61.7, 1e9}) {
            SCOPED_TRACE(behaviour.name + ", abort after " + std::to_string(moment));
            const Wait search{"fast search",
                              [](SpectrumParser& parser, TuneGlobals&) {
                                  parser.set_fast_search(true);
                                  parser.BinaryAdjustAbundanceDownUsingThisSetpoint(lens, 900, 90000, 30, true, 0, 100,
                                                                                    40);
                              },
                              true,
                              false,
                              {},
                              spectrum_pair,
                              {5, -8}};
            AbortTally tally;
            abort_at(search, behaviour, moment, 86400 - 30, tally);
            Attempt undisturbed(search, behaviour, 86400 - 30);
            // Two spectra and five measurements, each with its own limit.
            EXPECT_LE(undisturbed.run().seconds,
                      2 * (15 + spectrum_pair(behaviour)) + 5 * (45 + populated_spectrum(behaviour)));
        }
}

}  // namespace
}  // namespace korvane
