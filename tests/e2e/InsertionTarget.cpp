#include "InsertionTarget.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <csignal>
#include <stdexcept>

#include "tests/support/WaitUntil.h"

namespace kelvo::test {

InsertionTarget::InsertionTarget(std::string kind, const std::vector<std::string>& options)
    : kind_(std::move(kind)) {
    QStringList arguments{QStringLiteral("target"), QString::fromStdString(kind_)};
    for (const auto& option : options) {
        arguments << QString::fromStdString(option);
    }
    // The script starts the Qt target this build made, unless told otherwise.
    if (!qEnvironmentVariableIsSet("KELVO_QT_TARGET")) {
        qputenv("KELVO_QT_TARGET", KELVO_QT_TARGET);
    }
    QProcess script;
    script.start(QStringLiteral(KELVO_HEADLESS_SESSION), arguments);
    // Generous: the script itself gives each step 20 s.
    if (!script.waitForFinished(90000) || script.exitStatus() != QProcess::NormalExit ||
        script.exitCode() != 0) {
        script.kill();
        script.waitForFinished();
        throw std::runtime_error("cannot start target " + kind_ + ": " +
                                 script.readAllStandardError().toStdString());
    }
    stateFile_ = script.readAllStandardOutput().trimmed().toStdString();
    QFile file(QString::fromStdString(stateFile_));
    if (file.open(QIODevice::ReadOnly)) {
        pid_ = QJsonDocument::fromJson(file.readAll()).object().value("pid").toInteger();
    }
}

InsertionTarget::~InsertionTarget() {
    if (pid_ <= 0) {
        return;
    }
    ::kill(static_cast<pid_t>(pid_), SIGTERM);
    // Wait until it is gone, so the next target's test never meets this one's window. The target
    // is not our child: a zombie waiting for its reaper counts as gone.
    waitUntil(
        [&] {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(pid_));
            if (!stat.open(QIODevice::ReadOnly)) {
                return true;
            }
            const QByteArray line = stat.readAll();
            const int afterName = line.lastIndexOf(')');
            return afterName < 0 || line.mid(afterName + 2, 1) == "Z";
        },
        std::chrono::seconds(10), std::chrono::milliseconds(20));
}

std::string InsertionTarget::text() const {
    QFile file(QString::fromStdString(stateFile_));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QJsonDocument::fromJson(file.readAll()).object().value("text").toString().toStdString();
}

std::string InsertionTarget::waitForText(const std::function<bool(const std::string&)>& condition,
                                         std::chrono::milliseconds limit) const {
    std::string current;
    waitUntil([&] { return condition(current = text()); }, limit, std::chrono::milliseconds(20));
    return current;
}

}  // namespace kelvo::test
