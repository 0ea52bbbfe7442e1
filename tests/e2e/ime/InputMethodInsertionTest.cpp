// Dictated text through the user's input method, end to end: fcitx5 with our addon and, separately,
// ibus-daemon run inside the headless session; a GTK entry, a Qt line edit and xterm (XIM) use
// them; the application's TextInsertionService sends the text with the real committers and the
// real clipboard and paste chord behind them. Japanese with an emoji (a skin-tone sequence) must
// arrive byte for byte; a window without an input context must get the text through the next
// path (AT-SPI), a password field nothing at all; a pending Mozc
// composition must survive (only as a user other than root: mozc_server refuses root).
#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoroTask>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KelvoVoiceMac/TextInsertionService.h"
#include "X11TestWindow.h"
#include "platform/AccessibilityClient.h"
#include "platform/QtClock.h"
#include "platform/TraceOutput.h"
#include "platform/linux/AtspiAccessibilityClient.h"
#include "platform/linux/Fcitx5InputMethodCommitter.h"
#include "platform/linux/IBusInputMethodCommitter.h"
#include "platform/linux/QClipboardPasteboard.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XTestKeySynthesizer.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using platform::InputMethodCommitter;
using Outcome = InputMethodCommitter::Outcome;

const std::string dictated = "音声入力のテスト、日本語👍🏽です。";

class RecordingTrace final : public platform::TraceOutput {
  public:
    void write(std::string_view line) override { lines.emplace_back(line); }
    bool contains(const std::string& line) const {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    std::vector<std::string> lines;
};

std::string sessionDir() {
    return qEnvironmentVariable("KELVO_SESSION_DIR").toStdString();
}

QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The text a target reports in its state file.
std::string targetText(const std::string& statePath) {
    QJsonObject state =
        QJsonDocument::fromJson(fileBytes(QString::fromStdString(statePath))).object();
    return state.value("text").toString().toStdString();
}

// A client window that the test can focus and whose received text it can read.
struct Client {
    std::string title;
    std::function<std::string()> text;
};

// Starts an insertion target through the session script; the input-method variables of this
// process's environment reach it.
Client startTarget(const std::string& kind) {
    int status = 0;
    std::string state =
        runProgram({KELVO_HEADLESS_SESSION, "target", QString::fromStdString(kind)}, &status);
    EXPECT_EQ(status, 0) << "target " << kind << " did not start";
    state = state.substr(0, state.find('\n'));
    std::string title = QFileInfo(QString::fromStdString(state)).completeBaseName().toStdString();
    return Client{title, [state] { return targetText(state); }};
}

// xterm with input-method support, its keyboard input copied byte for byte into a file (no line
// editing, no echo, so nothing waits for a newline).
Client startTerminal(const std::string& inputMethodName) {
    static int count = 0;
    std::string title = "kelvo-xterm-" + std::to_string(++count);
    QString output = QString::fromStdString(sessionDir() + "/" + title + ".out");
    // Input typed before the line discipline is switched would wait for a newline.
    QString ready = output + ".ready";
    // Detached: the session ends it with the test program's other descendants.
    QProcess::startDetached(
        "xterm", {"-T", QString::fromStdString(title), "-fa", "Noto Sans Mono CJK JP", "-xrm",
                  QString::fromStdString("*inputMethod: " + inputMethodName), "-e", "sh", "-c",
                  "stty -icanon -echo; : > '" + ready + "'; exec cat > '" + output + "'"});
    EXPECT_TRUE(waitUntil([&] { return QFile::exists(ready); }, 60s)) << "xterm did not start";
    return Client{title, [output] { return fileBytes(output).toStdString(); }};
}

// The GTK entry, the Qt line edit and xterm, each started when called.
std::vector<std::function<Client()>> clientStarters(const std::string& inputMethodName) {
    return {[] { return startTarget("gtk-entry"); }, [] { return startTarget("qt-lineedit"); },
            [inputMethodName] { return startTerminal(inputMethodName); }};
}

// Focuses the client's window until the input method reports an input context with the focus. A
// client's input context is made asynchronously, so a focus that arrives before it is ready is
// not seen by the framework: focus again until it is.
bool focusUntilReady(const Client& client, InputMethodCommitter& committer) {
    return waitUntil(
        [&] {
            int status = 0;
            std::string window = runProgram(
                {"xdotool", "search", "--name", QString::fromStdString("^" + client.title + "$")},
                &status);
            if (status != 0 || window.empty()) {
                return false;
            }
            window = window.substr(0, window.find('\n'));
            runProgram({"xdotool", "windowfocus", "--sync", QString::fromStdString(window)});
            for (int i = 0; i < 10; ++i) {
                if (QCoro::waitFor(committer.probe()).outcome == Outcome::delivered) {
                    return true;
                }
                waitUntil([] { return false; }, 100ms);
            }
            return false;
        },
        60s);
}

// The application's insertion service with the given committers and the real X11 backends.
class Insertion {
  public:
    explicit Insertion(std::vector<InputMethodCommitter*> committers)
        : service_({.accessibility = accessibility_,
                    .pasteboard = pasteboard_,
                    .keySynthesizer = keys_,
                    .workspace = workspace_,
                    .clock = clock_,
                    .traceOutput = trace,
                    .inputMethods = std::move(committers)}) {}

    bool insert(const std::string& text) { return QCoro::waitFor(service_.insert(text, true)); }

    RecordingTrace trace;

  private:
    platform::AtspiAccessibilityClient accessibility_;
    platform::QClipboardPasteboard pasteboard_;
    platform::XTestKeySynthesizer keys_;
    platform::X11Workspace workspace_;
    platform::QtClock clock_;
    app::TextInsertionService service_;
};

// One input-method daemon for a test suite, with its own configuration and data folders in the
// session folder; the clients started meanwhile are told to use it.
class InputMethodDaemon {
  public:
    InputMethodDaemon(const QString& program, const QStringList& arguments,
                      const QProcessEnvironment& environment) {
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::MergedChannels);
        process_.setStandardOutputFile(QString::fromStdString(sessionDir()) + "/" + program +
                                       ".log");
        process_.start(program, arguments);
        process_.waitForStarted();
    }
    ~InputMethodDaemon() {
        process_.terminate();
        if (!process_.waitForFinished(5000)) {
            process_.kill();
            process_.waitForFinished();
        }
    }
    bool isRunning() const { return process_.state() == QProcess::Running; }

  private:
    QProcess process_;
};

QProcessEnvironment daemonEnvironment(const QString& home) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HOME", home);
    environment.insert("XDG_CONFIG_HOME", home + "/.config");
    environment.insert("XDG_DATA_HOME", home + "/.local/share");
    environment.insert("GSETTINGS_BACKEND", "memory");
    return environment;
}

void useInputMethod(const char* gtkModule, const char* xim) {
    qputenv("GTK_IM_MODULE", gtkModule);
    qputenv("QT_IM_MODULE", gtkModule);
    qputenv("XMODIFIERS", QByteArray("@im=") + xim);
}

// A GTK entry without input-method support gets the text through AT-SPI; password fields (which
// keep their input context under Fcitx5) get nothing from any path. Another window with an input
// context stays untouched throughout.
void expectTheNextPathsTakeOver(InputMethodCommitter& committer) {
    Client withInputMethod = startTarget("gtk-entry");
    ASSERT_TRUE(focusUntilReady(withInputMethod, committer));
    Insertion insertion({&committer});

    const QByteArray gtkModule = qgetenv("GTK_IM_MODULE");
    const QByteArray modifiers = qgetenv("XMODIFIERS");
    // GTK's own simple input context: the framework never hears of this window.
    useInputMethod("gtk-im-context-simple", "none");
    Client without = startTarget("gtk-entry");
    qputenv("GTK_IM_MODULE", gtkModule);
    qputenv("XMODIFIERS", modifiers);
    // The framework has seen the other window lose the focus.
    ASSERT_TRUE(waitUntil([&] {
        return QCoro::waitFor(committer.probe()).outcome == Outcome::noFocusedInputContext;
    }));
    EXPECT_TRUE(insertion.insert(dictated));
    EXPECT_EQ(without.text(), dictated);
    EXPECT_TRUE(insertion.trace.contains("[TextInsertion] Input method " + committer.name() +
                                         ": no focused input context"));
    EXPECT_TRUE(insertion.trace.contains("[TextInsertion] AX direct insertion succeeded"));

    for (const char* kind : {"gtk-password", "qt-password"}) {
        SCOPED_TRACE(kind);
        Client password = startTarget(kind);
        insertion.trace.lines.clear();
        EXPECT_FALSE(insertion.insert(dictated));
        EXPECT_TRUE(insertion.trace.contains(
            "[TextInsertion] Focused element is a password field, not inserting"));
        EXPECT_EQ(password.text(), "");
    }
    EXPECT_EQ(withInputMethod.text(), "");
}

// --- Fcitx5 ---------------------------------------------------------------------------------

class Fcitx5InsertionTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
#ifndef KELVO_FCITX5_ADDON_CONF
        return;
#else
        QString home = QString::fromStdString(sessionDir()) + "/fcitx5-home";
        QDir().mkpath(home + "/.local/share/fcitx5/addon");
        QFile::copy(KELVO_FCITX5_ADDON_CONF,
                    home + "/.local/share/fcitx5/addon/kelvovoicecommit.conf");
        // No panel, tray or Wayland in the headless session; the keyboard layout engine only.
        daemon_ = new InputMethodDaemon("fcitx5",
                                        {"--disable=wayland,notificationitem,kimpanel,classicui"},
                                        daemonEnvironment(home));
#endif
    }
    static void TearDownTestSuite() {
        delete daemon_;
        daemon_ = nullptr;
    }
    void SetUp() override {
        if (!daemon_) {
            GTEST_SKIP() << "the Fcitx5 addon was not built (Fcitx5 development packages missing)";
        }
        useInputMethod("fcitx", "fcitx");
        // Ready once our addon answers on fcitx5's bus.
        ASSERT_TRUE(waitUntil(
            [&] { return QCoro::waitFor(committer.probe()).outcome != Outcome::unavailable; }, 60s))
            << "fcitx5 did not load the addon";
    }

    static InputMethodDaemon* daemon_;
    platform::Fcitx5InputMethodCommitter committer;
};
InputMethodDaemon* Fcitx5InsertionTest::daemon_ = nullptr;

TEST_F(Fcitx5InsertionTest, DictationLandsInGtkQtAndTerminalByteForByte) {
    Insertion insertion({&committer});
    // One client at a time: a client that is still making its input context when the next one
    // starts could take the focus back in the framework's view.
    for (const auto& start : clientStarters("fcitx")) {
        Client client = start();
        SCOPED_TRACE(client.title);
        ASSERT_TRUE(focusUntilReady(client, committer));
        insertion.trace.lines.clear();
        EXPECT_TRUE(insertion.insert(dictated));
        EXPECT_TRUE(waitUntil([&] { return client.text() == dictated; })) << client.text();
        ASSERT_EQ(insertion.trace.lines.size(), 1u);
        EXPECT_TRUE(insertion.trace.lines[0].starts_with(
            "[TextInsertion] Input method insertion succeeded: fcitx5 ("))
            << insertion.trace.lines[0];
    }
}

TEST_F(Fcitx5InsertionTest, WithoutAnInputContextAccessibilityTakesOverAndPasswordsGetNothing) {
    expectTheNextPathsTakeOver(committer);
}

// --- IBus -----------------------------------------------------------------------------------

class IBusInsertionTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        QString home = QString::fromStdString(sessionDir()) + "/ibus-home";
        QDir().mkpath(home);
        // The daemon writes its address under its configuration folder, where the clients (Qt's
        // plugin reads nothing else) and this process's libibus look for it.
        qputenv("XDG_CONFIG_HOME", (home + "/.config").toUtf8());
        daemon_ =
            new InputMethodDaemon("ibus-daemon", {"--xim", "--panel=disable", "--config=disable"},
                                  daemonEnvironment(home));
        committer_ = new platform::IBusInputMethodCommitter();
    }
    static void TearDownTestSuite() {
        delete committer_;
        delete daemon_;
    }
    void SetUp() override {
        useInputMethod("ibus", "ibus");
        ASSERT_TRUE(waitUntil(
            [&] { return QCoro::waitFor(committer_->probe()).outcome != Outcome::unavailable; },
            60s))
            << "ibus-daemon did not start";
    }

    static InputMethodDaemon* daemon_;
    static platform::IBusInputMethodCommitter* committer_;
};
InputMethodDaemon* IBusInsertionTest::daemon_ = nullptr;
platform::IBusInputMethodCommitter* IBusInsertionTest::committer_ = nullptr;

TEST_F(IBusInsertionTest, DictationLandsInGtkQtAndTerminalByteForByte) {
    Insertion insertion({committer_});
    for (const auto& start : clientStarters("ibus")) {
        Client client = start();
        SCOPED_TRACE(client.title);
        ASSERT_TRUE(focusUntilReady(client, *committer_));
        insertion.trace.lines.clear();
        EXPECT_TRUE(insertion.insert(dictated));
        EXPECT_TRUE(waitUntil([&] { return client.text() == dictated; })) << client.text();
        ASSERT_EQ(insertion.trace.lines.size(), 1u);
        EXPECT_TRUE(insertion.trace.lines[0].starts_with(
            "[TextInsertion] Input method insertion succeeded: ibus ("))
            << insertion.trace.lines[0];
    }
}

TEST_F(IBusInsertionTest, WithoutAnInputContextAccessibilityTakesOverAndPasswordsGetNothing) {
    expectTheNextPathsTakeOver(*committer_);
}

}  // namespace
}  // namespace kelvo::test
