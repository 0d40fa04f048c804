// Seam: a modal message box with an OK button.
#pragma once

#include <memory>
#include <string>

namespace korvane {

class MessageBox {
public:
    virtual ~MessageBox() = default;
    /// Returns when the user has closed the box.
    virtual void show(const std::string& text, const std::string& title) = 0;
};

/// The system's own box; where there is none, title and text go to standard error.
std::shared_ptr<MessageBox> make_system_message_box();

}  // namespace korvane
