#include "tune/base_file.h"

#include "korvane/error.h"
#include "korvane/system.h"
#include "platform/files.h"

namespace korvane {

BaseFile::BaseFile(const Platform& its_platform, const std::string& name, const char* its_routine)
    : platform(its_platform), routine(its_routine) {
    path = join_path(platform.instrument->create_path_information()->base_folder(), name);
}

std::optional<json::Json> BaseFile::read() const {
    std::string text;
    try {
        if (!platform.files->status(path).exists) return std::nullopt;
        platform.files->read(path, text);
    } catch (const FileError& fault) {
        refuse(fault.what());
    }
    auto object = json::Json::parse(text, nullptr, false, true);
    if (!object.is_object()) refuse("it is no JSON object");
    return object;
}

void BaseFile::save(const json::Json& object) const {
    try {
        safe_save(*platform.files, path, object.dump(2) + '\n');
    } catch (const FileError& fault) {
        refuse(fault.what());
    }
}

void BaseFile::refuse(const std::string& why) const {
    throw Error(error_number::file_or_element, routine, path + ": " + why);
}

}  // namespace korvane
