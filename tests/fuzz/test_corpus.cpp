// Replays the seed inputs of every fuzz target and every input that once broke something.
#include <gtest/gtest.h>

#include <random>

#include "fuzz/targets.h"
#include "support/test_platform.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> inputs_of(std::string_view target) {
    std::vector<std::string> inputs;
    for (const char* kind : {"corpus", "crashers"}) {
        const fs::path folder = fs::path(KORVANE_SOURCE_DIR) / "fuzz" / kind / target;
        if (!fs::exists(folder)) continue;
        for (const auto& entry : fs::directory_iterator(folder))
            if (entry.is_regular_file()) inputs.push_back(read_text(entry.path()));
    }
    return inputs;
}

std::string mutated(std::string input, std::mt19937& random) {
    for (int edit = 0; edit < 3; ++edit) {
        const std::size_t at = input.empty() ? 0 : random() % input.size();
        const unsigned kind = random() % 3;
        if (kind == 0) input.insert(at, 1, static_cast<char>(random()));
        if (kind == 1) input.erase(at, random() % 8);
        if (kind == 2) input.insert(at, input.substr(input.size() / 2, random() % 32));
    }
    return input;
}

TEST(FuzzCorpus, NoKnownInputOrNeighbourOfItBreaksAReader) {
    std::mt19937 random(1);
    for (const auto& [name, run] : fuzz::targets) {
        const std::vector<std::string> inputs = inputs_of(name);
        ASSERT_FALSE(inputs.empty()) << name << " has no seed inputs";
        for (const std::string& input : inputs) {
            SCOPED_TRACE(std::string(name));
            run(input);
            for (int neighbour = 0; neighbour < 50; ++neighbour) run(mutated(input, random));
        }
    }
}

}  // namespace
}  // namespace korvane
