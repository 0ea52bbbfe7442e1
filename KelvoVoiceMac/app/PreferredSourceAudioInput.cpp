#include "KelvoVoiceMac/app/PreferredSourceAudioInput.h"

namespace kelvo::app {

PreferredSourceAudioInput::PreferredSourceAudioInput(Factory factory,
                                                     std::function<std::string()> preferredSource)
    : factory_(std::move(factory)),
      preferredSource_(std::move(preferredSource)),
      source_(preferredSource_()),
      input_(factory_(source_)) {}

platform::AudioInput::Authorization PreferredSourceAudioInput::authorization() {
    return input_->authorization();
}

void PreferredSourceAudioInput::requestAuthorization(std::function<void(bool granted)> completion) {
    input_->requestAuthorization(std::move(completion));
}

std::optional<platform::AudioInput::Format> PreferredSourceAudioInput::open() {
    std::string wanted = preferredSource_();
    if (wanted != source_) {
        // Nothing is open between two captures, so the old input can simply go.
        input_->close();
        input_ = factory_(wanted);
        source_ = wanted;
    }
    return input_->open();
}

void PreferredSourceAudioInput::start(std::uint32_t framesPerRead, FramesHandler handler) {
    input_->start(framesPerRead, std::move(handler));
}

void PreferredSourceAudioInput::close() {
    input_->close();
}

}  // namespace kelvo::app
