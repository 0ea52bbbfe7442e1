#pragma once

#include "core/support/Error.h"

namespace kelvo {

/// The audio file recorder's own failures. `what()` is the description shown to the user and
/// logged; `errorCase()` tells them apart. Immutable; safe to copy and read from any thread.
class AudioRecorderError : public Error {
  public:
    enum class Case { notRecording, fileNotFound };

    /// Stop was asked for while no recording is under way.
    static AudioRecorderError notRecording() {
        return AudioRecorderError(Case::notRecording, "Recording has not started");
    }

    /// The recording ended but left no file to hand back (removed meanwhile, or nothing recorded).
    static AudioRecorderError fileNotFound() {
        return AudioRecorderError(Case::fileNotFound, "Recorded audio file not found");
    }

    Case errorCase() const noexcept { return case_; }

  private:
    AudioRecorderError(Case errorCase, const char* description)
        : Error(description), case_(errorCase) {}

    Case case_;
};

}  // namespace kelvo
