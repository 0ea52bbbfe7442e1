#pragma once

// KelvoVoiceApp is the real `kelvovoice` binary running in the current headless session, for
// end-to-end tests: its own data and settings folders under `home` (so the user's files are never
// touched), English as the system language (the fallback recogniser ships an English model only),
// the state lines mirrored to standard error, and standard output and error both in one log file
// the test polls. Also the few desktop actions the tests perform around it: the trigger key
// through xdotool, sound into the virtual microphone, the clipboard through xclip and the status
// item's menu over D-Bus (tests/e2e/sni-menu). The application is ended with SIGTERM when the
// object goes. Test thread only.

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kelvo::test {

class KelvoVoiceApp {
  public:
    // Starts the application with the folders under `home` (created as needed).
    explicit KelvoVoiceApp(const std::filesystem::path& home,
                           const std::vector<std::string>& arguments = {});
    ~KelvoVoiceApp();

    KelvoVoiceApp(const KelvoVoiceApp&) = delete;
    KelvoVoiceApp& operator=(const KelvoVoiceApp&) = delete;

    // Everything the application has written so far.
    std::string log() const;
    // Polls the log until `text` occurs `count` times or a generous limit passes.
    bool waitForLog(const std::string& text, std::size_t count = 1,
                    std::chrono::milliseconds limit = std::chrono::seconds(60)) const;
    std::size_t countInLog(const std::string& text) const;

    // Sends SIGTERM and waits for the exit; returns the exit status (128 + signal when killed).
    int terminate();
    bool isRunning();
    pid_t pid() const noexcept { return pid_; }

    // "<home>/data/KelvoVoiceMac/dictionary.json".
    static std::filesystem::path dictionaryFile(const std::filesystem::path& home);

    // --- the desktop around it ---
    // Runs a command line through /bin/sh; returns its standard output, throws when it fails.
    static std::string run(const std::string& commandLine);
    // Holds the trigger key (Right Ctrl) while `sound` plays into the virtual microphone.
    static void dictate(const std::filesystem::path& sound);
    // One press and release of the trigger key, `held` apart.
    static void tapTrigger(std::chrono::milliseconds held = std::chrono::milliseconds(80));
    static void pressTrigger(bool down);
    static void play(const std::filesystem::path& sound);
    static std::optional<std::string> clipboardText();
    static void setClipboardText(const std::string& text);
    // The status item's menu as tests/e2e/sni-menu lists it: one "LABEL\tENABLED\tTOGGLE" line
    // per entry, in order.
    static std::vector<std::string> menuEntries();
    static void clickMenu(const std::string& label);
    // Starts a StatusNotifierWatcher host for the session (once per session).
    static void startStatusNotifierHost();

    static std::filesystem::path sourceDirectory();
    static std::filesystem::path englishSample();

  private:
    std::filesystem::path logFile_;
    pid_t pid_ = -1;
    bool exited_ = false;
};

// Polls condition every 100 ms until it holds or limit passes; returns its last value.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(60));

}  // namespace kelvo::test
