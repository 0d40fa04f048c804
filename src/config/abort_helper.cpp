#include "korvane/abort_helper.h"

#include "frame/routine.h"
#include "korvane/tune_prefs_xml.h"

namespace korvane {

namespace {

const std::string abort_flag = "AbortFlag";
const std::string no_abort = "0";
const std::string abort_requested = "1";

}  // namespace

struct AbortHelper::Impl {
    explicit Impl(const Platform& platform) : trace(platform.tracers), preferences(platform) {}

    Trace trace;
    clsTunePrefsXML preferences;
};

AbortHelper::AbortHelper(Platform platform) : impl_(new Impl(platform), [](Impl* state) { delete state; }) {}

void AbortHelper::Reset() {
    impl_->preferences.WriteTunePreference(abort_flag, no_abort);
}

void AbortHelper::TriggerAbort() {
    routine(impl_->trace, {"TriggerAbort"}, no_line,
            [&] { impl_->preferences.WriteTunePreference(abort_flag, abort_requested); });
}

bool AbortHelper::UserHasClickedAbort() {
    return routine(impl_->trace, {"UserHasClickedAbort"}, ErrorLine{"Error[", "]: "}, [&](TraceObj& record) {
        const bool requested = impl_->preferences.GetTunePreference(abort_flag, true) != no_abort;
        record.TR_PRINT(requested ? "Process Aborted by XML flag" : "Abort value is set to 0");
        return requested;
    });
}

}  // namespace korvane
