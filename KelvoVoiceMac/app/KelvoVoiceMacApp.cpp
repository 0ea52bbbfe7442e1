#include "KelvoVoiceMac/app/KelvoVoiceMacApp.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCommandLineParser>
#include <QFont>
#include <QIcon>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>

#include "KelvoVoiceMac/app/AppDelegate.h"
#include "KelvoVoiceMac/shell/SingleInstance.h"

namespace kelvo::app {
namespace {

// Japanese labels need Japanese glyph shapes: the default fallback may pick a Chinese face for
// unified ideographs, so the family is pinned with the desktop's own font behind it.
void pinUserInterfaceFont() {
    QFont font = QApplication::font();
    QStringList families = {QStringLiteral("Noto Sans CJK JP")};
    families.append(font.families());
    font.setFamilies(families);
    QApplication::setFont(font);
}

// SIGTERM (log-out, systemctl, kill) and SIGINT (Ctrl+C in a terminal) end the event loop like
// "Quit", so the objects are taken down in order. The handler only writes to a pipe; the main
// loop reads it.
int signalPipe[2] = {-1, -1};

void forwardSignal(int) {
    char byte = 1;
    [[maybe_unused]] auto written = write(signalPipe[1], &byte, 1);
}

void quitOnTerminationSignals(QObject* context) {
    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    auto* notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context, [] {
        char byte = 0;
        while (read(signalPipe[0], &byte, 1) > 0) {
        }
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

}  // namespace

KelvoVoiceMacApp::KelvoVoiceMacApp(int& argc, char** argv) : application_(argc, argv) {
    // The event dispatcher is made (see main); QT_NO_GLIB is not for the programs we start.
    qunsetenv("QT_NO_GLIB");
    QApplication::setOrganizationName(QStringLiteral("KelvoVoice"));
    QApplication::setApplicationName(QStringLiteral("KelvoVoice"));
    QApplication::setApplicationVersion(QStringLiteral(KELVO_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("kelvovoice"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/kelvovoice.svg")));
    QApplication::setQuitOnLastWindowClosed(false);
    pinUserInterfaceFont();
}

KelvoVoiceMacApp::~KelvoVoiceMacApp() {
    // The delegate's objects use the application; they go first.
    _appDelegate.reset();
    singleInstance_.reset();
}

int KelvoVoiceMacApp::run() {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Push-to-talk Japanese dictation: hold the trigger key (Right Ctrl) and "
                       "speak; the text is typed where the cursor is."));
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption verbose(QStringLiteral("verbose"),
                               QStringLiteral("Also write the state lines to standard error."));
    parser.addOption(verbose);
    QCommandLineOption open(QStringLiteral("open"),
                            QStringLiteral("Show a window at once: dictionary, settings or test."),
                            QStringLiteral("window"));
    parser.addOption(open);
    parser.process(application_);

    QString request;
    QString window = parser.value(open);
    if (window == QLatin1String("dictionary")) {
        request = QString::fromLatin1(SingleInstance::openDictionaryRequest);
    } else if (window == QLatin1String("settings")) {
        request = QString::fromLatin1(SingleInstance::openSettingsRequest);
    } else if (window.isEmpty() || window == QLatin1String("test")) {
        request = QString::fromLatin1(SingleInstance::showTestWindowRequest);
    } else {
        std::fprintf(stderr, "kelvovoice: unknown window '%s' (dictionary, settings or test)\n",
                     qPrintable(window));
        return 2;
    }

    singleInstance_ = std::make_unique<SingleInstance>();
    auto role = singleInstance_->claim(request, [this](const QString& received) {
        if (_appDelegate) {
            _appDelegate->handleRequest(received);
        }
    });
    if (role == SingleInstance::Role::secondary) {
        std::fputs("KelvoVoice is already running; the window is shown there.\n", stderr);
        return 0;
    }

    quitOnTerminationSignals(&application_);
    _appDelegate = std::make_unique<AppDelegate>(parser.isSet(verbose));
    _appDelegate->applicationDidFinishLaunching();
    if (parser.isSet(open)) {
        _appDelegate->handleRequest(request);
    }
    return QApplication::exec();
}

}  // namespace kelvo::app
