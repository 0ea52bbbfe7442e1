#pragma once

// PreferredSourceAudioInput is the microphone as the user last chose it in the settings: before
// each capture opens, it asks for the preferred source name (empty: the server's default) and, when
// that changed since the last capture, replaces the input it wraps with one for the new source.
// So a choice made in the settings window applies from the next dictation on. Everything else is
// passed through to the wrapped input.
//
// Called like any AudioInput: open/start/close from one thread (the main thread), the frames
// handler on the wrapped input's capture thread.

#include <functional>
#include <memory>
#include <string>

#include "platform/AudioInput.h"

namespace kelvo::app {

class PreferredSourceAudioInput final : public platform::AudioInput {
  public:
    using Factory = std::function<std::unique_ptr<platform::AudioInput>(const std::string& source)>;

    PreferredSourceAudioInput(Factory factory, std::function<std::string()> preferredSource);

    Authorization authorization() override;
    void requestAuthorization(std::function<void(bool granted)> completion) override;
    std::optional<Format> open() override;
    void start(std::uint32_t framesPerRead, FramesHandler handler) override;
    void close() override;

  private:
    Factory factory_;
    std::function<std::string()> preferredSource_;
    std::string source_;
    std::unique_ptr<platform::AudioInput> input_;
};

}  // namespace kelvo::app
