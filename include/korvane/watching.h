// A look at what runs: a platform whose uses and waits somebody watches, and tokens that end single calls.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "korvane/platform.h"

namespace korvane {

/// The platform with a look before every use of the instrument, and whenever time passes: at every turn of a wait, and
/// every 50 ms of a long one. `at_spectrum`: before one is asked for. What `look` raises ends what runs. `seen`, where
/// given, is shown every spectrum that comes.
KORVANE_API Platform watched(Platform platform, std::function<void(bool at_spectrum)> look,
                             std::function<void(const AcquiredSpectrum&)> seen = {});

/// Somebody's wish to end calls; copies share it, threads too. The abort flag of the file is another matter.
class KORVANE_API AbortToken {
public:
    void abort() noexcept { *requested_ = true; }
    bool requested() const noexcept { return *requested_; }

private:
    std::shared_ptr<std::atomic<bool>> requested_ = std::make_shared<std::atomic<bool>>(false);
};

/// While it lives, calls of this thread on classes of an `abortable` platform end with error 1 "User aborted" once the
/// token asks for it, in waits within 0.1 s.
class KORVANE_API AbortScope {
public:
    explicit AbortScope(AbortToken token);
    ~AbortScope();
    AbortScope(const AbortScope&) = delete;
    AbortScope& operator=(const AbortScope&) = delete;

    /// Raises the error where the token of a scope of this thread asks for it.
    static void look();
    /// Asks by the token of the thread's innermost scope, where there is one.
    static void abort_innermost() noexcept;

private:
    AbortToken token_;
    AbortScope* outer_;
};

/// The platform on which tokens work.
KORVANE_API Platform abortable(Platform platform);

}  // namespace korvane
