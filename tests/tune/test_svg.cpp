// What a picture may not lose.
#include "tune/svg.h"

#include <gtest/gtest.h>

namespace korvane {
namespace {

// A line of any number of points over a few hundred columns keeps its lowest and its highest value.
TEST(Svg, LinesKeepTheirApex) {
    for (const std::size_t size : {1U, 100U, 300'000U})
        for (const std::size_t apex : {std::size_t{0}, size / 3, size - 1}) {
            std::vector<svg::Point> points;
            for (std::size_t i = 0; i < size; ++i)
                points.push_back({static_cast<double>(i), i == apex ? 50.0 : 1.0 + i % 2});
            svg::Panel panel({0, 0, 500, 100}, {{0, static_cast<double>(size)}}, {{0, 100}});
            panel.line(points, "apex");
            EXPECT_NE(panel.content().find(" 50"), std::string::npos) << size << ", " << apex;
            EXPECT_LT(panel.content().size(), 25'000U);
        }
}

}  // namespace
}  // namespace korvane
