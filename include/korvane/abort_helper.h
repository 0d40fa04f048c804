// The abort flag: a request to stop a running tune, kept in the tune preference file so that it crosses processes.
#pragma once

#include "korvane/platform.h"

namespace korvane {

/// Errors: -901 preference file unusable, -904 no `AbortFlag` element or the save failed, -905 no root element.
class KORVANE_API AbortHelper {
public:
    explicit AbortHelper(Platform platform = Platform::process_default());

    /// Clears the request: writes "0".
    void Reset();
    /// Makes the request: writes "1".
    void TriggerAbort();
    /// Reads the file anew; any flag text but "0" is a request. A failure is raised, never an answer.
    bool UserHasClickedAbort();

private:
    struct Impl;
    PrivateState<Impl> impl_;
};

}  // namespace korvane
