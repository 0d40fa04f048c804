#include "frame/routine.h"

#include <new>

#include "frame/checked_layer.h"
#include "platform/files.h"

namespace korvane {

namespace {
constexpr std::int32_t out_of_memory = 7;
constexpr std::int32_t internal_error = 51;

/// Of an exception that nobody in the library raises: most likely the instrument layer's.
Error unexpected(std::string_view description) {
    const char* const call = last_instrument_call();
    return Error(internal_error, "Korvane",
                 call ? text_of(description, " (last instrument call: ", call, "())") : std::string(description));
}

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
        return unexpected(error.what());
    } catch (...) {
        return unexpected("Internal error");
    }
}

}  // namespace korvane
