// How the routines of the tune globals run: traced, with the text of a caught error kept before it goes on.
#pragma once

#include <string>
#include <utility>

#include "frame/routine.h"

namespace korvane {

class TuneRoutines {
public:
    explicit TuneRoutines(Trace trace) : trace_(std::move(trace)) {}

    /// The usual error line: "Error[number] in name(): description".
    template <class Body>
    auto guarded(RoutineName name, Body&& body) {
        return routine(trace_, name, NamedLine{name.name, error_message}, std::forward<Body>(body));
    }
    /// `line` is an `ErrorLine` or anything else with `text(const Error&)`.
    template <class Line, class Body>
    auto guarded(RoutineName name, const Line& line, Body&& body) {
        return routine(trace_, name, KeptLine<Line>{line, error_message}, std::forward<Body>(body));
    }
    /// Errors pass to the caller without a line.
    template <class Body>
    auto unguarded(RoutineName name, Body&& body) {
        return unguarded_routine(trace_, name, std::forward<Body>(body));
    }
    /// Errors end here; `note(const Error&)` is told of them.
    template <class Body, class Note>
    void swallowing(RoutineName name, const ErrorLine& line, Body&& body, Note&& note) {
        swallowing_routine(trace_, name, line, std::forward<Body>(body), [&](std::string text, const Error& error) {
            error_message = std::move(text);
            note(error);
        });
    }

    /// Text of the last error that any routine caught.
    std::string error_message;

private:
    template <class Line>
    struct KeptLine {
        const Line& line;
        std::string& kept;
        std::string text(const Error& error) const { return kept = line.text(error); }
    };
    struct NamedLine {
        std::string_view name;
        std::string& kept;
        std::string text(const Error& error) const {
            return kept = text_of("Error[", error.number(), "] in ", name, "(): ", error.description());
        }
    };

    Trace trace_;
};

}  // namespace korvane
