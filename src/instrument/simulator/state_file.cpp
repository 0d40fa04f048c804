#include "instrument/simulator/state_file.h"

#include "korvane/error.h"
#include "platform/safe_save.h"

namespace korvane::simulation {

namespace {

[[noreturn]] void refuse_file(const std::string& path, const std::string& what, const FileError& fault) {
    throw Error(error_number::file_or_element, "Simulator", what + " file[" + path + "]: " + fault.what());
}

bool exists(Files& files, const std::string& path) {
    try {
        return files.status(path).exists;
    } catch (const FileError& fault) {
        refuse_file(path, "state", fault);
    }
}

}  // namespace

std::string read_named_file(Files& files, const std::string& path, const std::string& what) {
    std::string bytes;
    try {
        files.read(path, bytes);
    } catch (const FileError& fault) {
        refuse_file(path, what, fault);
    }
    return bytes;
}

std::optional<InstrumentState> StateFile::load() {
    if (!path_ || !exists(*files_, *path_)) return std::nullopt;
    saved_text_ = read_named_file(*files_, *path_, "state");
    return parse_state(saved_text_, *path_);
}

void StateFile::save(const InstrumentState& state) {
    if (!path_) return;
    std::string text = state_text(state);
    if (text == saved_text_) return;
    try {
        safe_save(*files_, *path_, text);
    } catch (const FileError& fault) {
        throw Error(fault.runtime_error_number(), "Simulator", "state file[" + *path_ + "]: " + fault.what());
    }
    saved_text_ = std::move(text);
}

}  // namespace korvane::simulation
