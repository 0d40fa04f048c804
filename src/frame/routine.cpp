#include "frame/routine.h"

#include <new>

#include "platform/files.h"

namespace korvane {

namespace {
constexpr std::int32_t out_of_memory = 7;
constexpr std::int32_t internal_error = 51;
}  // namespace

Error current_error() {
    try {
        throw;
    } catch (const Error& error) {
        return error;
    } catch (const FileError& error) {
        return Error(error.runtime_error_number(), "Korvane", error.what());
    } catch (const std::bad_alloc&) {
        return Error(out_of_memory, "Korvane", "Out of memory");
    } catch (const std::exception& error) {
        return Error(internal_error, "Korvane", error.what());
    } catch (...) {
        return Error(internal_error, "Korvane", "Internal error");
    }
}

}  // namespace korvane
