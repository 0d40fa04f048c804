#include "korvane/build_information.h"

#include <Eigen/src/Core/util/Macros.h>
#include <expat.h>
#include <fmt/format.h>
#include <zlib.h>

#include <nlohmann/detail/abi_macros.hpp>
#include <pugixml.hpp>

namespace korvane {

BuildInformation build_information() {
    const auto of_three = [](int major, int minor, int patch) { return fmt::format("{}.{}.{}", major, minor, patch); };
    return {KORVANE_VERSION,
            KORVANE_COMMIT,
            {{"Eigen", of_three(EIGEN_WORLD_VERSION, EIGEN_MAJOR_VERSION, EIGEN_MINOR_VERSION)},
             {"Expat", of_three(XML_MAJOR_VERSION, XML_MINOR_VERSION, XML_MICRO_VERSION)},
             {"fmt", of_three(FMT_VERSION / 10000, FMT_VERSION / 100 % 100, FMT_VERSION % 100)},
             {"nlohmann-json",
              of_three(NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR, NLOHMANN_JSON_VERSION_PATCH)},
             {"pugixml", of_three(PUGIXML_VERSION / 1000, PUGIXML_VERSION / 10 % 100, PUGIXML_VERSION % 10)},
             {"zlib", ZLIB_VERSION}}};
}

}  // namespace korvane
