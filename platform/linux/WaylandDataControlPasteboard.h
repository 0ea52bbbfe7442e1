#pragma once

// WaylandDataControlPasteboard is the Pasteboard of Wayland sessions whose compositor offers the
// data-control protocol (wlr-data-control-unstable-v1: Sway, Hyprland, river, Wayfire, KDE Plasma
// 5.27+). A Wayland client may set the ordinary clipboard only with the serial of an input event
// it received, which a tray application without a focused window never has; data control is
// the compositor's privileged clipboard for clipboard managers and needs no focus. Like X11, the
// data stays with its owner: each write is a data source of ours, and the compositor asks it for
// the text (a send event) exactly when another client fetches the paste, which is how we know the
// target really took it; the compositor cancels the source when another client replaces it.
//
// Owns its own Wayland connection (to $WAYLAND_DISPLAY, whatever toolkit the application runs
// on), served by a thread of its own so that sources are answered while the main thread waits.
// The interface is called from the main thread; each call waits for the connection's thread, at
// most about a second when the compositor does not answer. The fetched handler runs on the main
// thread (needs a Qt event loop there). Our own reads of the clipboard do not count as fetches.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Pasteboard.h"

namespace kelvo::platform {

class WaylandDataControlPasteboard final : public Pasteboard {
  public:
    // Connects to displayName, or to $WAYLAND_DISPLAY when it is empty.
    explicit WaylandDataControlPasteboard(const std::string& displayName = {});
    ~WaylandDataControlPasteboard() override;

    WaylandDataControlPasteboard(const WaylandDataControlPasteboard&) = delete;
    WaylandDataControlPasteboard& operator=(const WaylandDataControlPasteboard&) = delete;

    // Whether the compositor was reached and offers data control with a seat; without it every
    // write fails and every read finds nothing.
    bool isAvailable() const;

    std::optional<std::string> readString() const override;
    bool writeString(const std::string& text) override;
    void clear() override;
    bool lastWriteFetched() const override;
    bool holdsLastWrite() const override;
    void setFetchedHandler(std::function<void()> handler) override;

  private:
    struct Connection;
    std::unique_ptr<Connection> connection_;
};

}  // namespace kelvo::platform
