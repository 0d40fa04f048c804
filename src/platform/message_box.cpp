#include "korvane/system.h"

#include <cstdio>

#include "platform/windows_text.h"

namespace korvane {

namespace {

class SystemMessageBox final : public MessageBox {
public:
    void show(const std::string& text, const std::string& title) override {
#ifdef _WIN32
        ::MessageBoxW(nullptr, utf16_from_utf8(text).c_str(), utf16_from_utf8(title).c_str(), MB_OK | MB_TASKMODAL);
#else
        const std::string line = title + ": " + text + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
#endif
    }
};

}  // namespace

std::shared_ptr<MessageBox> make_system_message_box() {
    return std::make_shared<SystemMessageBox>();
}

}  // namespace korvane
