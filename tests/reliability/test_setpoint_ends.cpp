// An error, an abort or an instrument that stops to answer, from every single instrument call on: where the setpoints
// end then.
#include <gtest/gtest.h>

#include "reliability/troubled_client.h"

namespace korvane {
namespace {

class SetpointEnds : public testing::TestWithParam<Operation> {};

TEST_P(SetpointEnds, AreThePromisedOnesWhateverHappensAtAnyInstrumentCall) {
    TroubledClient client(4);
    for (const Trouble trouble :
         {Trouble::fault, Trouble::fault_for_good, Trouble::abort, Trouble::wrong_polarity, Trouble::silence}) {
        int at = 0;
        do {
            SCOPED_TRACE(trouble_names[static_cast<int>(trouble)] + (" at call " + std::to_string(++at)));
            ASSERT_EQ(client.run(GetParam(), trouble, at), "");
            ASSERT_LT(at, 3000);
        } while (client.met());
        EXPECT_GT(at, 3) << "the operation asks the instrument for next to nothing";
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, SetpointEnds, testing::ValuesIn(operations()), [](const auto& chosen) {
    std::string name = chosen.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

}  // namespace
}  // namespace korvane
