#include "platform/linux/Fcitx5InputMethodCommitter.h"

#include <QCoroDBusPendingCall>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QString>

namespace kelvo::platform {

namespace {

constexpr char fcitxService[] = "org.fcitx.Fcitx5";
constexpr char commitPath[] = "/org/kelvovoice/InputMethod";
constexpr char commitInterface[] = "org.kelvovoice.InputMethod1";
constexpr char noFocusedInputContext[] = "no-focused-input-context";
constexpr char passwordField[] = "password-field";

QDBusMessage addonCall(const char* method) {
    QDBusMessage message =
        QDBusMessage::createMethodCall(fcitxService, commitPath, commitInterface, method);
    message.setAutoStartService(false);  // never start the user's input method for them
    return message;
}

// Why a call did not reach the addon, as the user can act on it.
std::string unreachableReason(const QDBusMessage& reply) {
    const QString error = reply.errorName();
    if (error == "org.freedesktop.DBus.Error.ServiceUnknown" ||
        error == "org.freedesktop.DBus.Error.NameHasNoOwner") {
        return "fcitx5 is not running";
    }
    if (error == "org.freedesktop.DBus.Error.UnknownObject" ||
        error == "org.freedesktop.DBus.Error.UnknownMethod" ||
        error == "org.freedesktop.DBus.Error.UnknownInterface") {
        return "the KelvoVoice addon is not loaded in fcitx5 (restart fcitx5 once after "
               "installing it)";
    }
    if (error == "org.freedesktop.DBus.Error.NoReply" ||
        error == "org.freedesktop.DBus.Error.Timeout") {
        return "fcitx5 did not answer within " +
               std::to_string(Fcitx5InputMethodCommitter::callTimeout.count()) + " ms";
    }
    return (error + ": " + reply.errorMessage()).toStdString();
}

}  // namespace

Fcitx5InputMethodCommitter::Fcitx5InputMethodCommitter(QDBusConnection connection)
    : connection_(std::move(connection)) {}

QCoro::Task<InputMethodCommitter::Result> Fcitx5InputMethodCommitter::commit(std::string text) {
    if (!connection_.isConnected()) {
        co_return Result{Outcome::unavailable, "no session bus"};
    }
    QDBusMessage message = addonCall("CommitText");
    // resetComposition false: the user's preedit survives and our text goes in before it.
    message << QString::fromStdString(text) << false;
    QDBusPendingCall call = connection_.asyncCall(message, static_cast<int>(callTimeout.count()));
    co_await call;
    const QDBusMessage reply = call.reply();
    if (reply.type() != QDBusMessage::ReplyMessage) {
        co_return Result{Outcome::unavailable, unreachableReason(reply)};
    }
    const QList<QVariant> arguments = reply.arguments();
    if (arguments.size() != 2) {
        co_return Result{Outcome::unavailable, "unexpected reply from the fcitx5 addon"};
    }
    std::string detail = arguments[1].toString().toStdString();
    if (arguments[0].toBool()) {
        co_return Result{Outcome::delivered, std::move(detail)};
    }
    if (detail == noFocusedInputContext) {
        co_return Result{Outcome::noFocusedInputContext, "no focused input context"};
    }
    if (detail == passwordField) {
        co_return Result{Outcome::passwordField, "the focused field is a password field"};
    }
    co_return Result{Outcome::unavailable, std::move(detail)};
}

QCoro::Task<InputMethodCommitter::Result> Fcitx5InputMethodCommitter::probe() {
    if (!connection_.isConnected()) {
        co_return Result{Outcome::unavailable, "no session bus"};
    }
    QDBusPendingCall call =
        connection_.asyncCall(addonCall("FocusInfo"), static_cast<int>(callTimeout.count()));
    co_await call;
    const QDBusMessage reply = call.reply();
    if (reply.type() != QDBusMessage::ReplyMessage) {
        co_return Result{Outcome::unavailable, unreachableReason(reply)};
    }
    const QList<QVariant> arguments = reply.arguments();
    // Five values from an addon built before the password flag and the context's identity, still
    // loaded until fcitx5 restarts; its CommitText refuses password fields all the same.
    if (arguments.size() != 5 && arguments.size() != 7) {
        co_return Result{Outcome::unavailable, "unexpected reply from the fcitx5 addon"};
    }
    if (!arguments[0].toBool()) {
        co_return Result{Outcome::noFocusedInputContext, "ready; no input context has the focus"};
    }
    std::string focus = "ready; focus: " + arguments[1].toString().toStdString() + ":" +
                        arguments[2].toString().toStdString() + " (" +
                        arguments[3].toString().toStdString() + ")";
    if (arguments.size() == 7) {
        focus += ", context " + arguments[6].toString().left(8).toStdString();
        if (arguments[5].toBool()) {
            co_return Result{Outcome::passwordField, focus + ", a password field"};
        }
    }
    co_return Result{Outcome::delivered, std::move(focus)};
}

}  // namespace kelvo::platform
