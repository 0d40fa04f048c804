// The short form of the soak; scripts/soak.sh runs the long one.
#include <gtest/gtest.h>

#include "reliability/soak/soak.h"

namespace korvane {
namespace {

TEST(ShortSoak, ExplainsEveryResultAndKeepsItsHandles) {
    const SoakFigures figures = soak(20000, 5);
    EXPECT_EQ(figures.unexplained, 0) << figures.first_unexplained;
    EXPECT_EQ(figures.handles_late, figures.handles_early);
    EXPECT_GE(figures.acquisitions, 20000);
    EXPECT_GT(figures.troubles, 3);
}

}  // namespace
}  // namespace korvane
