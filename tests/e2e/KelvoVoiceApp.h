#pragma once

// KelvoVoiceApp is the real `kelvovoice` binary running in the current headless session, for
// end-to-end tests: its own data and settings folders under `home` (so the user's files are never
// touched), English as the system language (the fallback recogniser ships an English model only),
// the state lines mirrored to standard error, and standard output and error both in one log file
// the test polls. Also the few desktop actions the tests perform around it: the trigger key
// through xdotool, sound into the virtual microphone, the clipboard through xclip and the status
// item's menu over D-Bus (tests/e2e/sni-menu). Test thread only.

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "LoggedProcess.h"

namespace kelvo::test {

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class KelvoVoiceApp : public LoggedProcess {
  public:
    // Starts the application with the folders under `home` (created as needed).
    explicit KelvoVoiceApp(const std::filesystem::path& home,
                           const std::vector<std::string>& arguments = {});

    // One dictation as a person makes it: startOrStop(true) (the trigger key unless told), the
    // sound played once the application records, startOrStop(false) once the recogniser has
    // settled its final words (a busy machine's decoding backlog is not cut off by the stop),
    // and back once the application is idle again (the insertion, and a paste's clipboard
    // restore, done). Without a sound, a silent recording of a second and a half. False when one
    // of these states did not come (the application's log says which).
    bool dictate(const std::filesystem::path& sound = englishSample(),
                 const std::function<void(bool)>& startOrStop = pressTrigger);

    // --- the desktop around it ---
    // One press and release of the trigger key (Right Ctrl), `held` apart.
    static void tapTrigger(std::chrono::milliseconds held = std::chrono::milliseconds(80));
    static void pressTrigger(bool down);
    static void clickDictationMenuItem(bool start);
    static void play(const std::filesystem::path& sound);
    static std::optional<std::string> clipboardText();
    static void setClipboardText(const std::string& text);
    // The status item's menu as tests/e2e/sni-menu lists it: one "LABEL\tENABLED\tTOGGLE" line
    // per entry, in order.
    static std::vector<std::string> menuEntries();
    static void clickMenu(const std::string& label);
    // tests/e2e/sni-menu with `arguments` (shell words); its standard output.
    static std::string sniMenu(const std::string& arguments);
    // Starts a StatusNotifierWatcher host for the session (once per session).
    static void startStatusNotifierHost();

    static std::filesystem::path sourceDirectory();
    static std::filesystem::path englishSample();
};

}  // namespace kelvo::test
