#include "instrument/simulator/ion_population.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>

#include "instrument/simulator/expected_signal.h"
#include "instrument/simulator/random_stream.h"
#include "korvane/error.h"
#include "platform/text.h"

namespace korvane::simulation {

namespace {

struct Isotope {
    int extra_nucleons;  // over the lightest isotope
    double mass, abundance;
};

// Atomic mass evaluation 2020 and the representative isotopic compositions of IUPAC.
const std::map<std::string, std::vector<Isotope>, std::less<>>& elements() {
    static const std::map<std::string, std::vector<Isotope>, std::less<>> table{
        {"H", {{0, 1.00782503190, 0.999885}, {1, 2.01410177784, 0.000115}}},
        {"C", {{0, 12.0, 0.9893}, {1, 13.00335483534, 0.0107}}},
        {"N", {{0, 14.00307400425, 0.99636}, {1, 15.00010889827, 0.00364}}},
        {"O", {{0, 15.99491461926, 0.99757}, {1, 16.99913175595, 0.00038}, {2, 17.99915961214, 0.00205}}},
        {"F", {{0, 18.99840316207, 1.0}}},
        {"Na", {{0, 22.98976928195, 1.0}}},
        {"P", {{0, 30.97376199768, 1.0}}},
        {"S",
         {{0, 31.97207117354, 0.9499},
          {1, 32.97145890862, 0.0075},
          {2, 33.96786701100, 0.0425},
          {4, 35.96708069200, 0.0001}}},
        {"Cl", {{0, 34.96885269400, 0.7576}, {2, 36.96590257400, 0.2424}}},
        {"K", {{0, 38.96370648482, 0.932581}, {1, 39.96399816600, 0.000117}, {2, 40.96182525611, 0.067302}}},
    };
    return table;
}

constexpr int most_atoms = 100000;
constexpr int deepest_nesting = 20;

class FormulaReader {
public:
    explicit FormulaReader(std::string_view formula) : formula_(formula) {}

    Composition read() {
        Composition composition = group(0);
        if (position_ != formula_.size()) refuse("an unexpected character");
        if (composition.empty()) refuse("no element");
        return composition;
    }

private:
    [[noreturn]] void refuse(const std::string& reason) const {
        raise_runtime_fault(error_number::invalid_call, "formula[", formula_, "] has ", reason, " at position ",
                            position_ + 1);
    }
    bool next_is(char low, char high) const {
        return position_ < formula_.size() && formula_[position_] >= low && formula_[position_] <= high;
    }

    Composition group(int depth) {
        if (depth > deepest_nesting) refuse("too many nested parentheses");
        Composition total;
        while (next_is('(', '(') || next_is('A', 'Z')) {
            Composition part;
            if (next_is('(', '(')) {
                ++position_;
                part = group(depth + 1);
                if (!next_is(')', ')')) refuse("an open parenthesis");
                ++position_;
            } else {
                std::string symbol(1, formula_[position_++]);
                while (next_is('a', 'z')) symbol += formula_[position_++];
                if (!elements().contains(symbol)) refuse("the unknown element " + symbol);
                part = {{symbol, 1}};
            }
            const int times = count();
            for (const auto& [symbol, atoms] : part) {
                int& sum = total[symbol];
                if (static_cast<long long>(atoms) * times + sum > most_atoms) refuse("too many atoms");
                sum += atoms * times;
            }
        }
        return total;
    }
    int count() {
        if (!next_is('0', '9')) return 1;
        int value = 0;
        while (next_is('0', '9')) {
            value = value * 10 + (formula_[position_++] - '0');
            if (value > most_atoms) refuse("too many atoms");
        }
        if (value == 0) refuse("a count of 0");
        return value;
    }

    std::string_view formula_;
    std::size_t position_ = 0;
};

// Isotopologues by extra nucleons: probability and probability-weighted mass excess over the lightest.
struct Isotopologue {
    double fraction = 0, excess = 0;
};
using Pattern = std::vector<Isotopologue>;

Pattern combined(const Pattern& one, const Pattern& other, double least_fraction) {
    Pattern sum(one.size() + other.size() - 1);
    for (std::size_t i = 0; i < one.size(); ++i)
        for (std::size_t j = 0; j < other.size(); ++j) {
            sum[i + j].fraction += one[i].fraction * other[j].fraction;
            sum[i + j].excess += one[i].excess * other[j].fraction + one[i].fraction * other[j].excess;
        }
    while (sum.size() > 1 && sum.back().fraction < least_fraction * 1e-6) sum.pop_back();
    return sum;
}

Pattern one_atom(const std::vector<Isotope>& isotopes) {
    Pattern pattern(static_cast<std::size_t>(isotopes.back().extra_nucleons) + 1);
    for (const auto& [extra_nucleons, mass, abundance] : isotopes)
        pattern[static_cast<std::size_t>(extra_nucleons)] = {abundance, abundance * (mass - isotopes.front().mass)};
    return pattern;
}

// The pattern of `atoms` atoms by repeated doubling.
Pattern many_atoms(Pattern one, int atoms, double least_fraction) {
    Pattern total{{1, 0}};
    for (; atoms > 0; atoms /= 2) {
        if (atoms % 2 == 1) total = combined(total, one, least_fraction);
        if (atoms > 1) one = combined(one, one, least_fraction);
    }
    return total;
}

void add_scene_ion(const SceneIon& ion, const Scene& scene, const MassTimeCalibration& law, IonPeaks& peaks) {
    for (const IsotopePeak& isotope :
         ion.mz ? std::vector{IsotopePeak{*ion.mz, 1.0}}
                : isotope_pattern(parse_formula(ion.formula), ion.charge, scene.sample.least_isotope_fraction))
        peaks.push_back({isotope.mz, law.time_from_mass(isotope.mz), ion.ions * isotope.fraction, ion.calibrant});
}

double log_uniform(RandomStream& random, double low, double high) {
    return low * std::exp(random.uniform() * std::log(high / low));
}

/// Places the background between the peaks that are there.
void add_background(const Scene& scene, const MassTimeCalibration& law, RandomStream random, IonPeaks& peaks) {
    const BackgroundSetup& setup = scene.background;
    std::set<double> taken_times;
    for (const IonPeak& peak : peaks) taken_times.insert(peak.flight_time_ns);
    const auto is_free = [&](double time_ns) {
        const PeakPlace place = peak_place(time_ns, 1.0, scene.peak_shape.resolution_limit, scene.peak_shape);
        const double distance = setup.separation_sigmas * place.total_sigma_ns;
        const auto next = taken_times.lower_bound(time_ns - distance);
        return next == taken_times.end() || *next > time_ns + distance;
    };
    constexpr int most_in_a_row = 1000, most_attempts = 2000000;
    for (int placed = 0, attempts = 0, all = 0; placed < setup.count; ++attempts, ++all) {
        if (attempts == most_in_a_row || all == most_attempts)
            raise_runtime_fault(error_number::invalid_call, "background.count[", setup.count,
                                "] peaks do not fit with background.separation_sigmas");
        IonPeak peak;
        peak.mz = log_uniform(random, setup.least_mz, setup.most_mz);
        peak.ions = log_uniform(random, setup.least_ions, setup.most_ions);
        peak.flight_time_ns = law.time_from_mass(peak.mz);
        if (!is_free(peak.flight_time_ns)) continue;
        taken_times.insert(peak.flight_time_ns);
        peaks.push_back(peak);
        ++placed;
        attempts = -1;
    }
}

}  // namespace

Composition parse_formula(std::string_view formula) {
    return FormulaReader(formula).read();
}

std::vector<IsotopePeak> isotope_pattern(const Composition& composition, int charge, double least_fraction) {
    double lightest_mass = -charge * electron_mass;
    Pattern pattern{{1, 0}};
    for (const auto& [symbol, atoms] : composition) {
        const auto& isotopes = elements().find(symbol)->second;
        lightest_mass += atoms * isotopes.front().mass;
        pattern = combined(pattern, many_atoms(one_atom(isotopes), atoms, least_fraction), least_fraction);
    }
    std::vector<IsotopePeak> peaks;
    for (const auto& [fraction, excess] : pattern) {
        if (!peaks.empty() && fraction < least_fraction) continue;
        const double mean_excess = fraction > 0.0 ? excess / fraction : 0.0;
        peaks.push_back({(lightest_mass + mean_excess) / std::abs(charge), fraction});
    }
    return peaks;
}

std::array<IonPeaks, 2> build_ion_population(const Scene& scene, const MassTimeCalibration& law, std::uint64_t seed) {
    constexpr int most_atoms = 5000000;  // of all formulas: some seconds for their patterns
    int atoms = 0;
    for (const SceneIon& ion : scene.sample.ions)
        for (const auto& [symbol, count] : ion.mz ? Composition() : parse_formula(ion.formula))
            if ((atoms += count) > most_atoms)
                raise_runtime_fault(error_number::invalid_call, "the formulas have more than ", most_atoms, " atoms");
    std::array<IonPeaks, 2> population;
    for (const SceneIon& ion : scene.sample.ions) add_scene_ion(ion, scene, law, population[ion.charge > 0 ? 0 : 1]);
    for (std::size_t polarity = 0; polarity < population.size(); ++polarity) {
        add_background(scene, law, RandomStream(seed, polarity), population[polarity]);
        std::ranges::stable_sort(population[polarity], {}, &IonPeak::mz);
    }
    return population;
}

}  // namespace korvane::simulation
