#pragma once

// FakeSegmentRecognizerProvider answers with the recognisers the test put in: one for "ja-JP"
// and one for the system default locale, either of which may be absent.

#include <memory>
#include <string>

#include "fakes/FakeSegmentRecognizer.h"
#include "platform/SegmentRecognizerProvider.h"

namespace kelvo::test {

class FakeSegmentRecognizerProvider final : public platform::SegmentRecognizerProvider {
  public:
    void requestAuthorization(std::function<void(bool authorized)> completion) override {
        ++authorizationRequests;
        completion(true);
    }
    std::shared_ptr<platform::SegmentRecognizer> makeRecognizer(
        const std::string& locale) override {
        requestedLocale = locale;
        return localeRecognizer;
    }
    std::shared_ptr<platform::SegmentRecognizer> makeDefaultRecognizer() override {
        return defaultRecognizer;
    }

    std::shared_ptr<FakeSegmentRecognizer> localeRecognizer =
        std::make_shared<FakeSegmentRecognizer>("ja-JP");
    std::shared_ptr<FakeSegmentRecognizer> defaultRecognizer;
    int authorizationRequests = 0;
    std::string requestedLocale;
};

}  // namespace kelvo::test
