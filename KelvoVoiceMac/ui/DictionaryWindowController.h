#pragma once

// DictionaryWindowController owns the dictionary window: one top-level window titled "Dictionary",
// 760 × 520 at first and never smaller than 640 × 420, titled, closable, minimisable and resizable,
// whose content is the DictionaryEditViewMac over the shared store and engine. Closing the window
// only hides it; the window and its unsaved working copy stay, so show() brings back the same
// window as the user left it. The owner (the status item's menu) creates the controller on first
// use and keeps it for the life of the process. Main thread only.

#include <QWidget>
#include <memory>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/models/DictionaryStore.h"
#include "core/services/JSONSuggestionStore.h"
#include "platform/Preferences.h"

namespace kelvo::app {

class DictionaryEditViewMac;

class DictionaryWindowController final {
  public:
    // With `suggestions` (and the preferences, for the switch of learning) the window also lists
    // the suggestions learnt from corrections, below the editor.
    DictionaryWindowController(std::shared_ptr<DictionaryStore> dictionaryStore,
                               std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine,
                               std::shared_ptr<JSONSuggestionStore> suggestions = nullptr,
                               platform::Preferences* preferences = nullptr);
    ~DictionaryWindowController();

    DictionaryWindowController(const DictionaryWindowController&) = delete;
    DictionaryWindowController& operator=(const DictionaryWindowController&) = delete;

    // Shows the window (restoring it when minimised), raises it and asks the window manager to
    // give it the keyboard focus.
    void show();

    QWidget& window() noexcept { return *window_; }
    DictionaryEditViewMac& editView() noexcept { return *editView_; }

    static constexpr const char* windowTitle = "Dictionary";

  private:
    std::unique_ptr<QWidget> window_;
    DictionaryEditViewMac* editView_;  // owned by window_
};

}  // namespace kelvo::app
