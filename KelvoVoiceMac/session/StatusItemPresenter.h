#pragma once

// StatusItemPresenter is the seam between the dictation session and the status item and menu that
// show it (the tray icon and its menu on Linux). The session calls refresh() after every change of
// its recording state, with the new state: the presenter switches the icon ("mic.fill" idle,
// "mic.badge.waveform" in red while recording), logs its status line and retitles the dictation
// menu item ("Start Dictation" / "Stop Dictation"). setDictationItemEnabled() disables that item
// for the whole of every start or finish. Main thread only; owned by the application's wiring.

#include "KelvoVoiceMac/session/RecordingState.h"

namespace kelvo::app {

class StatusItemPresenter {
  public:
    virtual ~StatusItemPresenter() = default;

    virtual void refresh(RecordingState state) = 0;
    virtual void setDictationItemEnabled(bool enabled) = 0;
};

}  // namespace kelvo::app
