// Qt 6 insertion target for end-to-end tests: one window with one QLineEdit that has the keyboard
// focus. Every change of its text, selection, caret or focus is written at once to STATE_FILE
// (JSON, replaced atomically), so a test sees what really landed in the widget rather than what
// the accessibility interface claims.
//
//   kelvo_qt_lineedit_target KIND STATE_FILE [--text TEXT] [--select START:END] [--title TITLE]
//
// KIND: "lineedit" (editable), "password" (echo mode Password: accessible role "password text")
// or "readonly". The caret starts at the end of TEXT; --select selects [START, END) in UTF-16
// units instead. State: {"pid", "text", "focused", "active"}. Qt exposes itself to AT-SPI only
// when the bus reports accessibility enabled at start-up (or QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1).
#include <QApplication>
#include <QCommandLineParser>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QSaveFile>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <QWindow>

#include <unistd.h>
#include <cstdio>

namespace {

void writeState(const QString& stateFile, const QLineEdit& edit) {
    QJsonObject state{
        {"pid", qint64(getpid())},
        {"text", edit.text()},
        {"focused", edit.hasFocus()},
        {"active", edit.isActiveWindow()},
    };
    QSaveFile file(stateFile);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(state).toJson(QJsonDocument::Compact));
        file.commit();
    }
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addPositionalArgument("kind", "lineedit, password or readonly");
    parser.addPositionalArgument("state-file", "where the state is written");
    parser.addOption({"text", "initial text", "text"});
    parser.addOption({"select", "initial selection START:END in UTF-16 units", "range"});
    parser.addOption({"title", "window title", "title", "kelvo-qt-target"});
    parser.process(application);
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 2 ||
        !QStringList{"lineedit", "password", "readonly"}.contains(positional[0])) {
        std::fprintf(stderr,
                     "usage: kelvo_qt_lineedit_target lineedit|password|readonly "
                     "STATE_FILE [--text TEXT] [--select START:END] [--title TITLE]\n");
        return 2;
    }
    const QString kind = positional[0];

    // A line edit inside a window, as in real applications: the accessible window and the
    // focused text are two objects.
    QWidget window;
    window.setWindowTitle(parser.value("title"));
    auto* layout = new QVBoxLayout(&window);
    auto* editOwned = new QLineEdit(parser.value("text"));
    layout->addWidget(editOwned);
    QLineEdit& edit = *editOwned;
    edit.setAccessibleName(kind);
    edit.setEchoMode(kind == "password" ? QLineEdit::Password : QLineEdit::Normal);
    edit.setReadOnly(kind == "readonly");
    window.resize(480, 60);

    auto write = [&edit, stateFile = positional[1]] { writeState(stateFile, edit); };
    QObject::connect(&edit, &QLineEdit::textChanged, write);
    QObject::connect(&edit, &QLineEdit::cursorPositionChanged, write);
    QObject::connect(&edit, &QLineEdit::selectionChanged, write);
    QObject::connect(&application, &QApplication::focusChanged, write);
    QObject::connect(&application, &QGuiApplication::applicationStateChanged, write);
    QObject::connect(&application, &QGuiApplication::focusWindowChanged, write);

    window.show();
    edit.setFocus();
    if (parser.isSet("select")) {
        const QStringList range = parser.value("select").split(':');
        edit.setSelection(range.value(0).toInt(), range.value(1).toInt() - range.value(0).toInt());
    } else {
        edit.end(false);
    }
    QTimer::singleShot(0, &edit, write);
    return application.exec();
}
