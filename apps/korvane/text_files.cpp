#include "text_files.h"

#include "korvane/system.h"

namespace korvane::program {

namespace {

/// What the system says names the file.
template <class Work>
void told(const Work& work) {
    try {
        work();
    } catch (const FileError& fault) {
        throw Error(error_number::file_or_element, "", fault.what());
    }
}

}  // namespace

std::string read_text(Session& session, const std::string& path) {
    std::string text;
    told([&] { session.platform().files->read(path, text); });
    return text;
}

void save_text(Session& session, const std::string& path, std::string_view text) {
    told([&] { safe_save(*session.platform().files, path, text); });
}

}  // namespace korvane::program
