#include "platform/linux/PocketSphinxRecognizerProvider.h"

namespace kelvo::platform {

PocketSphinxRecognizerProvider::PocketSphinxRecognizerProvider(
    PocketSphinxModelLocator locator, Clock& clock, std::optional<std::string> systemLocale,
    Clock::Duration idleRelease)
    : locator_(std::move(locator)),
      clock_(clock),
      systemLocale_(std::move(systemLocale)),
      idleRelease_(idleRelease) {}

void PocketSphinxRecognizerProvider::requestAuthorization(
    std::function<void(bool authorized)> completion) {
    completion(true);
}

std::shared_ptr<SegmentRecognizer> PocketSphinxRecognizerProvider::makeRecognizer(
    const std::string& locale) {
    std::optional<PocketSphinxModel> model = locator_.find(locale);
    if (!model) {
        return nullptr;
    }
    const std::lock_guard lock(mutex_);
    std::shared_ptr<PocketSphinxRecognizer>& recognizer = recognizers_[model->folder.string()];
    if (!recognizer) {
        recognizer =
            std::make_shared<PocketSphinxRecognizer>(std::move(*model), clock_, idleRelease_);
    }
    return recognizer;
}

std::shared_ptr<SegmentRecognizer> PocketSphinxRecognizerProvider::makeDefaultRecognizer() {
    return systemLocale_ ? makeRecognizer(*systemLocale_) : nullptr;
}

}  // namespace kelvo::platform
