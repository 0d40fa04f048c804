#include "instrument/simulator/state_file.h"

#include "korvane/error.h"
#include "platform/safe_save.h"

namespace korvane::simulation {

namespace {

[[noreturn]] void refuse_file(std::int32_t number, const std::string& what, const std::string& path,
                              const FileError& fault) {
    throw Error(number, "Simulator", what + " file[" + path + "]: " + fault.what());
}

}  // namespace

std::string read_named_file(Files& files, const std::string& path, const std::string& what) {
    std::string bytes;
    try {
        files.read(path, bytes);
    } catch (const FileError& fault) {
        refuse_file(error_number::file_or_element, what, path, fault);
    }
    return bytes;
}

std::optional<InstrumentState> StateFile::load() const {
    try {
        if (!path_ || !files_->status(*path_).exists) return std::nullopt;
    } catch (const FileError& fault) {
        refuse_file(error_number::file_or_element, "state", *path_, fault);
    }
    return parse_state(read_named_file(*files_, *path_, "state"), *path_);
}

void StateFile::update(const std::function<InstrumentState(const std::optional<InstrumentState>&)>& merged) const {
    if (!path_) return;
    const auto lock = wait_for_edit_lock(*files_, *clock_, *path_);
    try {
        safe_save(*files_, *path_, state_text(merged(load())));
    } catch (const FileError& fault) {
        refuse_file(fault.runtime_error_number(), "state", *path_, fault);
    }
}

}  // namespace korvane::simulation
