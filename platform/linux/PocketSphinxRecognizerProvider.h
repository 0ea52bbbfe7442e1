#pragma once

// PocketSphinxRecognizerProvider is the Linux SegmentRecognizerProvider: it finds each locale's
// model with a PocketSphinxModelLocator (see there for the folders and their layout) and hands out
// one PocketSphinxRecognizer per model folder, kept for the provider's life, so that a model loaded
// for one dictation serves the next. A locale without a model yields nullptr; the default
// recogniser is the one for the system locale given at construction (LC_ALL / LC_MESSAGES / LANG,
// see PocketSphinxModelLocator::systemLocale()). There is no speech-recognition permission on
// Linux: requestAuthorization() grants at once. The Clock times each recogniser's idle release
// and must outlive the provider. Callable from any thread.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/SegmentRecognizerProvider.h"
#include "platform/linux/PocketSphinxModelLocator.h"
#include "platform/linux/PocketSphinxRecognizer.h"

namespace kelvo::platform {

class PocketSphinxRecognizerProvider final : public SegmentRecognizerProvider {
  public:
    PocketSphinxRecognizerProvider(
        PocketSphinxModelLocator locator, Clock& clock, std::optional<std::string> systemLocale,
        Clock::Duration idleRelease = PocketSphinxRecognizer::defaultIdleRelease);

    void requestAuthorization(std::function<void(bool authorized)> completion) override;
    std::shared_ptr<SegmentRecognizer> makeRecognizer(const std::string& locale) override;
    std::shared_ptr<SegmentRecognizer> makeDefaultRecognizer() override;

    const PocketSphinxModelLocator& locator() const noexcept { return locator_; }
    const std::optional<std::string>& systemLocale() const noexcept { return systemLocale_; }

  private:
    const PocketSphinxModelLocator locator_;
    Clock& clock_;
    const std::optional<std::string> systemLocale_;
    const Clock::Duration idleRelease_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<PocketSphinxRecognizer>> recognizers_;
};

}  // namespace kelvo::platform
