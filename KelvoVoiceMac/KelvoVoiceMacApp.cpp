#include "KelvoVoiceMac/KelvoVoiceMacApp.h"

#include <QCommandLineParser>
#include <QFont>
#include <QIcon>
#include <cstdio>

#include "KelvoVoiceMac/AppDelegate.h"
#include "KelvoVoiceMac/SingleInstance.h"

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

}  // namespace

KelvoVoiceMacApp::KelvoVoiceMacApp(int& argc, char** argv) : application_(argc, argv) {
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
    parser.process(application_);

    singleInstance_ = std::make_unique<SingleInstance>();
    auto role = singleInstance_->claim(QString::fromLatin1(SingleInstance::showTestWindowRequest),
                                       [this](const QString& request) {
                                           if (request == QLatin1String(
                                                              SingleInstance::showTestWindowRequest) &&
                                               _appDelegate) {
                                               _appDelegate->showTestWindow();
                                           }
                                       });
    if (role == SingleInstance::Role::secondary) {
        std::fputs("KelvoVoice is already running; its test window is shown.\n", stderr);
        return 0;
    }

    _appDelegate = std::make_unique<AppDelegate>(parser.isSet(verbose));
    _appDelegate->applicationDidFinishLaunching();
    return QApplication::exec();
}

}  // namespace kelvo::app
