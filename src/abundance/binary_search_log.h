// The binary-search log: what an abundance search did, line by line, when it is switched on.
#pragma once

#include <string>

#include "globals/log_file.h"
#include "spectrum/session.h"

namespace korvane {

/// Stays open as long as the object. A failing write is kept in `ErrorMsgString` and never raised, as with the other
/// logs.
class BinarySearchLog {
public:
    explicit BinarySearchLog(Session& session) : session_(session), file_(session.platform) {}

    void switch_off() { on_ = false; }
    /// On exactly when the preference says "3000".
    void switch_by_preference();
    bool is_on() const { return on_; }
    void write(const std::string& line);

private:
    void open();

    Session& session_;
    LogFile file_;
    bool on_ = false;
};

/// The lines of one search: each goes to the trace and, when that is on, to the binary-search log.
class SearchLines {
public:
    SearchLines(TraceObj& record, BinarySearchLog& log) : record_(record), log_(log) {}

    template <class... Pieces>
    void operator()(const Pieces&... pieces) const {
        record_.TR_PRINT(pieces...);
        if (log_.is_on()) log_.write(text_of(pieces...));
    }

private:
    TraceObj& record_;
    BinarySearchLog& log_;
};

}  // namespace korvane
