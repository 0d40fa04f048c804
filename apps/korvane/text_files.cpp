#include "text_files.h"

#include "korvane/system.h"

namespace korvane::program {

namespace {

template <class Work>
void told(const std::string& path, const Work& work) {
    try {
        work();
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "", path + ": " + fault.what());
    }
}

}  // namespace

std::string read_text(Session& session, const std::string& path) {
    std::string text;
    told(path, [&] { session.platform().files->read(path, text); });
    return text;
}

void save_text(Session& session, const std::string& path, std::string_view text) {
    told(path, [&] { safe_save(*session.platform().files, path, text); });
}

}  // namespace korvane::program
