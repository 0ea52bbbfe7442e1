#pragma once

// SegmentRecognizerProvider is the seam that hands out segment recognisers, the fallback engine of
// SpeechService (SFSpeechRecognizer on macOS, PocketSphinxRecognizer on Linux, where a locale
// without an acoustic model of its own yields none and the system default locale's model serves
// instead). requestAuthorization() stands for the speech recognition permission; its completion
// may run on any thread, or not at all where no permission exists. May be called from any thread;
// it must outlive the recognisers it made.

#include <functional>
#include <memory>
#include <string>

namespace kelvo::platform {

class SegmentRecognizer;

class SegmentRecognizerProvider {
  public:
    virtual ~SegmentRecognizerProvider() = default;

    virtual void requestAuthorization(std::function<void(bool authorized)> completion) = 0;

    // A recogniser for locale (BCP 47), or nullptr when the locale has no model.
    virtual std::shared_ptr<SegmentRecognizer> makeRecognizer(const std::string& locale) = 0;

    // A recogniser for the system's default locale (LANG / LC_MESSAGES), or nullptr.
    virtual std::shared_ptr<SegmentRecognizer> makeDefaultRecognizer() = 0;
};

}  // namespace kelvo::platform
