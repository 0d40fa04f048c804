// Files that fail a given number of times, for the retries of the stores.
#pragma once

#include <string>

#include "korvane/forwarding.h"

namespace korvane {

class FailingFiles final : public ForwardingFiles {
public:
    using ForwardingFiles::ForwardingFiles;

    void read(const std::string& path, std::string& bytes) override {
        fail_if_any(failing_reads);
        ForwardingFiles::read(path, bytes);
    }
    void replace(const std::string& from, const std::string& to) override {
        fail_if_any(failing_saves);
        ForwardingFiles::replace(from, to);
    }

    int failing_reads = 0;
    int failing_saves = 0;

private:
    static void fail_if_any(int& left) {
        if (left <= 0) return;
        --left;
        throw FileError(FileErrorKind::sharing_violation, 16, "in use");
    }
};

}  // namespace korvane
