#pragma once

// SingleInstance keeps one KelvoVoice per user session. The first instance listens on a local
// socket in $XDG_RUNTIME_DIR (per user and per login session; /tmp with the user id when unset);
// a later launch finds it there, sends it a one-line request ("show-test-window", or the window
// named on its command line) and is told to exit. A socket file left behind by a crashed instance
// is recognised (nobody answers) and replaced. Two launches at the same moment are kept apart by a
// lock file held only while the role is decided.
//
// claim() runs before the event loop starts and blocks for at most a second or so on the local
// socket; requests to the primary arrive afterwards on the main thread through the handler.
// Owned by the application object for the life of the process.

#include <QLocalServer>
#include <QString>
#include <functional>
#include <memory>

namespace kelvo::app {

class SingleInstance {
  public:
    enum class Role { primary, secondary };

    // The requests a later launch sends: a plain launch asks for the test window.
    static constexpr const char* showTestWindowRequest = "show-test-window";
    static constexpr const char* openDictionaryRequest = "open-dictionary";
    static constexpr const char* openSettingsRequest = "open-settings";

    explicit SingleInstance(QString socketPath = defaultSocketPath());
    ~SingleInstance();

    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // Becomes the primary instance, or hands `request` to the running one and reports secondary.
    // onRequest is called on the main thread for every request a later launch sends.
    Role claim(const QString& request, std::function<void(const QString&)> onRequest);

    const QString& socketPath() const noexcept { return socketPath_; }

    static QString defaultSocketPath();

  private:
    bool sendToPrimary(const QString& request);
    void acceptConnections();

    QString socketPath_;
    std::function<void(const QString&)> onRequest_;
    std::unique_ptr<QLocalServer> server_;
};

}  // namespace kelvo::app
