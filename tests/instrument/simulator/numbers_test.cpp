// Variates and isotope patterns against what they stand for.
#include <gtest/gtest.h>

#include <cmath>

#include "instrument/simulator/ion_population.h"
#include "instrument/simulator/simulator_bench.h"

namespace korvane::simulation {
namespace {

TEST(IsotopePattern, MassesAndRatiosAreThoseOfIndependentAtoms) {
    struct Case {
        const char* formula;
        int charge;
        double mz;
    };
    for (const Case& known : {Case{"Na(CF3COONa)18", 1, 2470.5357}, Case{"CF3COO(CF3COONa)17", -1, 2424.5573},
                              Case{"H", 1, 1.007276}, Case{"Na(CF3COONa)Na", 2, 90.976625}})
        EXPECT_NEAR(isotope_pattern(parse_formula(known.formula), known.charge, 1e-3).front().mz, known.mz, 1e-4)
            << known.formula;
    EXPECT_EQ(parse_formula("Na(CF3COONa)2"), parse_formula("Na3C4F6O4"));
    EXPECT_EQ(parse_formula("((CH2)3O)2"), parse_formula("C6H12O2"));
    // 36 carbons, 36 oxygens: M+1 over M from 13C and 17O, M+2 from 18O and pairs.
    const auto peaks = isotope_pattern(parse_formula("Na(CF3COONa)18"), 1, 1e-6);
    const double carbon = 36 * 0.0107 / 0.9893, oxygen17 = 36 * 0.00038 / 0.99757, oxygen18 = 36 * 0.00205 / 0.99757;
    EXPECT_NEAR(peaks[1].fraction / peaks[0].fraction, carbon + oxygen17, 1e-9);
    const double pairs = carbon * carbon * 35 / 36 / 2 + carbon * oxygen17 + oxygen17 * oxygen17 * 35 / 36 / 2;
    EXPECT_NEAR(peaks[2].fraction / peaks[0].fraction, pairs + oxygen18, 1e-9);
    const double excess = (carbon * 1.00335483534 + oxygen17 * 1.00421713669) / (carbon + oxygen17);
    EXPECT_NEAR(peaks[1].mz - peaks[0].mz, excess, 1e-9);
    for (const char* formula : {"Cl4", "S6", "K2", "C500H800N100O200", "P", "Na2F3"}) {
        double sum = 0;
        for (const IsotopePeak& peak : isotope_pattern(parse_formula(formula), -1, 1e-9)) sum += peak.fraction;
        EXPECT_NEAR(sum, 1.0, 1e-6) << formula;
    }
    for (const std::string formula :
         {"", "Xx", "na", "C0", "C(", "C)", "()3", "C-1", "C 2", "C1000000", "((C9999)9999)9999"})
        EXPECT_NE(raised([&] { parse_formula(formula); }).find("formula[" + formula + "]"), std::string::npos);
    EXPECT_TRUE(raised([] { parse_formula(std::string(5000, '(')); }).starts_with("5|"));
}

}  // namespace
}  // namespace korvane::simulation
