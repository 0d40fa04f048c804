#include <atomic>

#include "korvane/system.h"

namespace korvane {

namespace {
std::atomic<std::uint64_t> factories_made{0};
}  // namespace

TracerFactory::TracerFactory() : id_(++factories_made) {}

}  // namespace korvane
