// Instruments that make a client wait, and the waits, as data: every wait is tried on every instrument.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "korvane/spectrum_parser.h"
#include "korvane/tune_globals.h"
#include "support/spectrum_world.h"

namespace korvane {

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

inline std::vector<WaitBehaviour> wait_behaviours() {
    const auto always = [](Shown shown) { return [shown](double, int) { return shown; }; };
    const auto after = [](double seconds, Shown before) {
        return [=](double now, int) { return now < seconds ? before : Shown::sought; };
    };
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
        {"chattering", 0.4,
         [](double, int request) {
             return request % 5 == 4 ? Shown::sought : request % 2 ? Shown::other : Shown::nothing;
         },
         0.8, 60},
        {"chattering, never the sought",
         1,
         [](double, int request) { return request % 4 == 3 ? Shown::other : Shown::nothing; },
         4,
         {}},
    };
}

/// An instrument of that behaviour, with a calibrant, a setpoint "Lens" and both registers that waits ask for.
struct WaitWorld {
    explicit WaitWorld(const WaitBehaviour& chosen, double start_second) : behaviour(chosen) {
        world.test.trace().on = false;
        *world.test.clock = VirtualClock(start_second);
        ScriptedState& instrument = world.instrument();
        instrument.meta_description = std::vector<std::string>{"Experiment", "Polarity (S)", "Gas"};
        instrument.acquire = [this](AcquiredSpectrum& spectrum, int) { acquire(spectrum); };
        instrument.metadata_items = [this] { return metadata(); };
        instrument.on_call = [this](int) { answer_registers(); };
        start = now();
    }

    double now() const { return world.test.clock->total_seconds(); }
    double seconds() const { return now() - start; }
    /// Behaves from now on.
    void begin(bool spectra, bool registers) {
        spectra_behave = spectra;
        registers_behave = registers;
        start = now();
        requests = 0;
    }

    SpectrumWorld world;
    WaitBehaviour behaviour;
    double start = 0;
    int requests = 0;
    bool spectra_behave = false, registers_behave = false;
    /// Called whenever the client hands control to the instrument or to pending events.
    std::function<void()> on_turn;

private:
    Shown next_shown(bool behaves) {
        if (on_turn) on_turn();
        world.test.clock->advance(behaves ? behaviour.spectrum_seconds : 0.1);
        if (on_turn) on_turn();
        return behaves ? behaviour.shown(seconds(), requests++) : Shown::sought;
    }
    void acquire(AcquiredSpectrum& spectrum) {
        const Shown shown = next_shown(spectra_behave);
        if (shown == Shown::nothing) return;
        world.fill(spectrum);
        const auto sought = static_cast<std::int32_t>(world.instrument().setpoint(119).value);
        const std::int32_t polarity = shown == Shown::sought ? sought : 1 - sought;
        spectrum.meta_data = VariantArray<InstrumentValue>(std::vector<InstrumentValue>{1, polarity, 0});
    }
    std::vector<MetaItem> metadata() {
        const Shown shown = next_shown(spectra_behave);
        if (shown == Shown::nothing) return {};
        const double set = world.instrument().setpoint(SpectrumWorld::adjustable_setpoint).value;
        return {{"Lens", shown == Shown::sought ? set : set + 7}};
    }
    void answer_registers() {
        if (on_turn) on_turn();
        const bool ready = !registers_behave || behaviour.shown(seconds(), requests++) == Shown::sought;
        world.instrument().registers["ACTUAL.NDR[NRDYSTATE]"] = ready ? 0 : -3;
        world.instrument().registers["REG[ACTUAL].OBJ[1].NDR[RUNSTATE]"] = ready ? 1 : 3;
    }
};

}  // namespace korvane
