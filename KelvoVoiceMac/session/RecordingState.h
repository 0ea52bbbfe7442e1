#pragma once

// RecordingState is the session state of the dictation controller as the status item shows it:
// idle or recording. Whether a start or finish is in progress is a separate flag of the
// controller, shown only by the disabled dictation menu item.

namespace kelvo::app {

enum class RecordingState { idle, recording };

}  // namespace kelvo::app
