#pragma once

// EvdevKeyMonitor is the KeyMonitor for sessions without X11 (Wayland, a console): it reads the
// trigger key straight from the kernel's keyboard devices, /dev/input/event*, that report the key.
// Reading is passive (no EVIOCGRAB), so the key still reaches the compositor. Keyboards plugged in
// later are picked up (inotify on the input folder, including the permission change udev makes
// right after a node appears), unplugged ones dropped; the trigger counts as down while any
// keyboard holds it. Events of virtual devices (uinput) are marked synthetic.
//
// The Input Monitoring permission is read access to those devices, which on Debian means
// membership of the `input` group; nothing can prompt for it.
//
// Threads: start() starts a reading thread that calls the handler; destruction stops and joins it.
// The trigger is named by its X keysym name, like the X11 monitor's preference value.

#include <memory>
#include <optional>
#include <string>

#include "platform/KeyMonitor.h"

namespace kelvo::platform {

class EvdevKeyMonitor final : public KeyMonitor {
  public:
    static constexpr const char* defaultInputFolder = "/dev/input";

    // Throws std::invalid_argument when triggerKeyName names no key this monitor knows.
    explicit EvdevKeyMonitor(const std::string& triggerKeyName = "Control_R",
                             std::string inputFolder = defaultInputFolder);
    ~EvdevKeyMonitor() override;

    EvdevKeyMonitor(const EvdevKeyMonitor&) = delete;
    EvdevKeyMonitor& operator=(const EvdevKeyMonitor&) = delete;

    // Whether at least one keyboard that reports the trigger key can be read now.
    bool hasListenAccess() const override;
    // Cannot prompt (group membership needs a new login): returns hasListenAccess().
    bool requestListenAccess() override;
    void start(Handler handler) override;

    // The evdev key code of an X keysym name ("Control_R" → KEY_RIGHTCTRL), for the keys that
    // make sense as a trigger: modifiers, lock keys, Menu, Pause, F1–F24.
    static std::optional<unsigned short> keyCodeForName(const std::string& keysymName);

  private:
    struct Reader;
    std::unique_ptr<Reader> reader_;
};

}  // namespace kelvo::platform
