#include "ImeTestSession.h"

#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <optional>

#include <X11/Xlib.h>

#include "X11TestWindow.h"
#include "platform/linux/Fcitx5AddonInstaller.h"

namespace kelvo::test {

namespace {

using namespace std::chrono_literals;

QString sessionDir() {
    return qEnvironmentVariable("KELVO_SESSION_DIR");
}

QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

}  // namespace

Client startTarget(const std::string& kind, const QStringList& options) {
    int status = 0;
    std::string state = runProgram(
        QStringList{KELVO_HEADLESS_SESSION, "target", QString::fromStdString(kind)} + options,
        &status);
    if (status != 0) {
        return {};
    }
    QString path = QString::fromStdString(state.substr(0, state.find('\n')));
    auto field = [path](const char* name) {
        return QJsonDocument::fromJson(fileBytes(path)).object().value(name);
    };
    return Client{QFileInfo(path).completeBaseName().toStdString(),
                  [field] { return field("text").toString().toStdString(); },
                  [field] { return field("active").toBool(); }};
}

Client startTerminal(const std::string& inputMethodName) {
    static int count = 0;
    std::string title = "kelvo-xterm-" + std::to_string(++count);
    QString output = sessionDir() + "/" + QString::fromStdString(title) + ".out";
    // Input typed before the line discipline is switched would wait for a newline.
    QString ready = output + ".ready";
    // Detached: the session ends it with the program's other descendants.
    QProcess::startDetached(
        "xterm", {"-T", QString::fromStdString(title), "-fa", "Noto Sans Mono CJK JP", "-xrm",
                  QString::fromStdString("*inputMethod: " + inputMethodName), "-e", "sh", "-c",
                  "stty -icanon -echo; : > '" + ready + "'; exec cat > '" + output + "'"});
    if (!waitUntil([&] { return QFile::exists(ready); }, 60s)) {
        return {};
    }
    return Client{title, [output] { return fileBytes(output).toStdString(); }};
}

Client startShownPasswordField() {
    static int count = 0;
    std::string title = "kelvo-shown-password-" + std::to_string(++count);
    QString output = sessionDir() + "/" + QString::fromStdString(title) + ".txt";
    QString script =
        QFileInfo(KELVO_HEADLESS_SESSION).absolutePath() + "/../tests/e2e/ime/gtk-shown-password";
    // Detached: the session ends it with the program's other descendants.
    QProcess::startDetached(script, {output, QString::fromStdString(title)});
    if (!waitUntil([&] { return QFile::exists(output + ".ready"); }, 60s)) {
        return {};
    }
    return Client{title, [output] { return fileBytes(output).toStdString(); }};
}

std::string reportedFocus(platform::InputMethodCommitter& committer) {
    return QCoro::waitFor(committer.probe()).detail;
}

namespace {

// Sets the X keyboard focus (there is no window manager); None takes it from every window.
void setInputFocus(Window window) {
    if (Display* display = XOpenDisplay(nullptr)) {
        XSetInputFocus(display, window, RevertToNone, CurrentTime);
        XSync(display, False);
        XCloseDisplay(display);
    }
}

// The mapped window with the title: only a mapped window can take the focus.
std::optional<Window> findWindow(const std::string& title) {
    int status = 0;
    std::string found = runProgram(
        {"xdotool", "search", "--onlyvisible", "--name", QString::fromStdString("^" + title + "$")},
        &status);
    if (status != 0 || found.empty()) {
        return std::nullopt;
    }
    return std::stoul(found.substr(0, found.find('\n')));
}

}  // namespace

bool focusUntil(const Client& client, platform::InputMethodCommitter& committer,
                const std::function<bool()>& condition) {
    using Outcome = platform::InputMethodCommitter::Outcome;
    bool firstRound = true;
    return !client.title.empty() &&
           waitUntil(
               [&] {
                   std::optional<Window> window = findWindow(client.title);
                   if (!window) {
                       return false;
                   }
                   // A window that has the focus already gets no new focus event, and the one it
                   // got may have come before its input context existed: after the first round,
                   // from no focus at all, once the framework has seen the focus go (so that no
                   // report from before the round is still in flight) and the client has too. Qt
                   // deactivates a window only 400 ms after it lost the X focus: focused again
                   // sooner, it sees no change and tells its input context nothing (the cause of
                   // a Qt line edit that the framework never saw focused, 1 run in 10).
                   if (!firstRound) {
                       setInputFocus(None);
                       waitUntil(
                           [&] {
                               Outcome outcome = QCoro::waitFor(committer.probe()).outcome;
                               return (outcome == Outcome::noFocusedInputContext ||
                                       outcome == Outcome::unavailable) &&
                                      !(client.active && client.active());
                           },
                           5s);
                   }
                   firstRound = false;
                   // As the session's target command focuses: xterm's input method follows that.
                   runProgram({"xdotool", "windowfocus", "--sync", QString::number(*window)});
                   return waitUntil(condition, 2s);
               },
               60s);
}

bool focusUntilReady(const Client& client, platform::InputMethodCommitter& committer,
                     const std::string& focusBefore) {
    using Outcome = platform::InputMethodCommitter::Outcome;
    return focusUntil(client, committer, [&] {
        auto focus = QCoro::waitFor(committer.probe());
        return focus.outcome == Outcome::delivered && focus.detail != focusBefore;
    });
}

void useInputMethod(const char* gtkAndQtModule, const char* ximServer) {
    qputenv("GTK_IM_MODULE", gtkAndQtModule);
    qputenv("QT_IM_MODULE", gtkAndQtModule);
    qputenv("XMODIFIERS", QByteArray("@im=") + ximServer);
}

InputMethodDaemon::InputMethodDaemon(const std::vector<std::string>& command, const QString& home)
    : LoggedProcess(
          command, (sessionDir() + "/" + QString::fromStdString(command[0]) + ".log").toStdString(),
          {"HOME=" + home.toStdString(), "XDG_CONFIG_HOME=" + home.toStdString() + "/.config",
           "XDG_DATA_HOME=" + home.toStdString() + "/.local/share", "GSETTINGS_BACKEND=memory"}) {}

std::unique_ptr<InputMethodDaemon> InputMethodDaemon::startFcitx5(const QString& addonLibrary,
                                                                  const QString& inputMethod) {
    QString home = sessionDir() + "/fcitx5-home" + inputMethod;
    if (!inputMethod.isEmpty()) {
        QDir().mkpath(home + "/.config/fcitx5");
        QFile profile(home + "/.config/fcitx5/profile");
        profile.open(QIODevice::WriteOnly);
        profile.write(
            "[Groups/0]\nName=Default\nDefault Layout=us\nDefaultIM=" + inputMethod.toUtf8() +
            "\n\n[Groups/0/Items/0]\nName=" + inputMethod.toUtf8() +
            "\nLayout=\n\n[GroupOrder]\n0=Default\n");
    }
    // The addon goes in as a user without root would put it: through the settings window's
    // installer, into the data folder this daemon reads.
    qputenv("XDG_DATA_HOME", (home + "/.local/share").toUtf8());
    platform::Fcitx5AddonInstaller installer({addonLibrary.toStdString()});
    if (!installer.installForUser().empty() ||
        installer.installation() != platform::Fcitx5AddonInstaller::Installation::forUser) {
        return nullptr;
    }
    useInputMethod("fcitx", "fcitx");
    return std::unique_ptr<InputMethodDaemon>(new InputMethodDaemon(
        {"fcitx5", qEnvironmentVariableIsSet("WAYLAND_DISPLAY")
                       ? "--disable=notificationitem,kimpanel,classicui"
                       : "--disable=wayland,notificationitem,kimpanel,classicui"},
        home));
}

bool startCompositor() {
    int status = 0;
    std::string socket = runProgram({KELVO_HEADLESS_SESSION, "compositor"}, &status);
    socket = socket.substr(0, socket.find('\n'));
    if (status == 0 && !socket.empty()) {
        qputenv("WAYLAND_DISPLAY", QByteArray::fromStdString(socket));
    }
    return status == 0 && !socket.empty();
}

std::unique_ptr<InputMethodDaemon> InputMethodDaemon::startIBus() {
    QString home = sessionDir() + "/ibus-home";
    QDir().mkpath(home);
    // Qt's IBus plugin finds the daemon only through this address file.
    qputenv("XDG_CONFIG_HOME", (home + "/.config").toUtf8());
    useInputMethod("ibus", "ibus");
    std::unique_ptr<InputMethodDaemon> daemon(new InputMethodDaemon(
        {"ibus-daemon", "--xim", "--panel=disable", "--config=disable"}, home));
    QDir addresses(home + "/.config/ibus/bus");
    waitUntil([&] { return !addresses.entryList(QDir::Files).isEmpty(); }, 60s);
    return daemon;
}

}  // namespace kelvo::test
