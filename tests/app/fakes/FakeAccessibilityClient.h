#pragma once

// A recording accessibility client over one scripted, always focused text element. The element has
// a state (value, selected text, range); setSelectedText() succeeds and switches the element to
// stateAfterSet after changeDelay on the fake clock (zero: at once; nothing: never, like
// applications that report success and do nothing). Every call is recorded in calls
// ("focusedElement", "value", "selectedText", "selectedTextRange", "setSelectedText X").

#include <QCoroTask>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fakes/FakeClock.h"
#include "platform/AccessibilityClient.h"

namespace kelvo::test {

class FakeAccessibilityClient final : public platform::AccessibilityClient {
  public:
    struct ElementState {
        std::optional<std::string> value;
        std::optional<std::string> selectedText;
        std::optional<TextRange> selectedTextRange;
    };

    class Element final : public platform::AccessibleElement {
      public:
        ElementState state;
    };

    explicit FakeAccessibilityClient(FakeClock& clock) : clock_(clock) {}

    bool isTrusted() const override { return trusted; }

    QCoro::Task<FocusedElement> focusedElement() override {
        calls.push_back("focusedElement");
        co_return FocusedElement{element, Outcome::done};
    }

    QCoro::Task<std::optional<std::string>> value(
        std::shared_ptr<platform::AccessibleElement> target) override {
        co_return read("value", target).value;
    }
    QCoro::Task<std::optional<std::string>> selectedText(
        std::shared_ptr<platform::AccessibleElement> target) override {
        co_return read("selectedText", target).selectedText;
    }
    QCoro::Task<std::optional<TextRange>> selectedTextRange(
        std::shared_ptr<platform::AccessibleElement> target) override {
        co_return read("selectedTextRange", target).selectedTextRange;
    }

    QCoro::Task<Outcome> setSelectedText(std::shared_ptr<platform::AccessibleElement> target,
                                         std::string text) override {
        calls.push_back("setSelectedText " + text);
        if (changeDelay) {
            auto changed = std::static_pointer_cast<Element>(target);
            auto after = stateAfterSet;
            clock_.schedule(*changeDelay, [changed, after] { changed->state = after; });
        }
        co_return Outcome::done;
    }

    bool trusted = true;
    std::shared_ptr<Element> element = std::make_shared<Element>();
    std::optional<platform::Clock::Duration> changeDelay = platform::Clock::Duration::zero();
    ElementState stateAfterSet;
    std::vector<std::string> calls;

  private:
    const ElementState& read(const char* call,
                             const std::shared_ptr<platform::AccessibleElement>& target) {
        calls.push_back(call);
        return static_cast<const Element&>(*target).state;
    }

    FakeClock& clock_;
};

}  // namespace kelvo::test
