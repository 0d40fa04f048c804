// libFuzzer's entry: one program a target, chosen by KORVANE_FUZZ_TARGET.
#include <cstddef>
#include <cstdint>

#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    korvane::fuzz::KORVANE_FUZZ_TARGET({reinterpret_cast<const char*>(bytes), size});
    return 0;
}
