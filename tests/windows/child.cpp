// What a test needs another process for. Ends only when it is ended.
//   save BASE                 writes the preference Mode, "odd" and "even" in turn
//   hold FILE SHARE MARKER    holds FILE open with the share mode SHARE, and makes MARKER once it does
#include <string>

#include "korvane/korvane.h"
#include "platform/windows_text.h"

namespace {

void save(const std::string& base) {
    korvane::clsTunePrefsXML store(korvane::make_embedded_platform({.base_folder = base}));
    for (int save = 0;; ++save) store.WriteTunePreference("Mode", save % 2 ? "even" : "odd");
}

HANDLE open(const char* path, DWORD share, DWORD disposition) {
    return CreateFileW(korvane::utf16_from_utf8(path).c_str(), GENERIC_READ, share, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string task = argc > 1 ? argv[1] : "";
    if (task == "save" && argc == 3) save(argv[2]);
    if (task != "hold" || argc != 5) return 2;
    if (open(argv[2], static_cast<DWORD>(std::stoul(argv[3])), OPEN_EXISTING) == INVALID_HANDLE_VALUE) return 3;
    if (open(argv[4], FILE_SHARE_READ, CREATE_ALWAYS) == INVALID_HANDLE_VALUE) return 4;
    Sleep(INFINITE);
}
