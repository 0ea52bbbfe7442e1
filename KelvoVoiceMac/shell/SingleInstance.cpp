#include "KelvoVoiceMac/shell/SingleInstance.h"

#include <unistd.h>

#include <QDir>
#include <QLocalSocket>
#include <QLockFile>

namespace kelvo::app {
namespace {

constexpr int kConnectTimeoutMs = 1000;
constexpr int kLockTimeoutMs = 3000;
constexpr qint64 kMaximumRequestBytes = 256;
const QByteArray kAcknowledgement = QByteArrayLiteral("ok\n");

}  // namespace

SingleInstance::SingleInstance(QString socketPath) : socketPath_(std::move(socketPath)) {}

SingleInstance::~SingleInstance() {
    if (server_) {
        server_->close();
    }
}

QString SingleInstance::defaultSocketPath() {
    QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QDir(runtime).exists()) {
        return QDir(runtime).filePath(QStringLiteral("kelvovoice.socket"));
    }
    return QDir(QDir::tempPath()).filePath(QStringLiteral("kelvovoice-%1.socket").arg(getuid()));
}

SingleInstance::Role SingleInstance::claim(const QString& request,
                                           std::function<void(const QString&)> onRequest) {
    onRequest_ = std::move(onRequest);
    QLockFile lock(socketPath_ + QStringLiteral(".lock"));
    // Without the lock (a stuck launch) we still go on: at worst two instances run.
    bool locked = lock.tryLock(kLockTimeoutMs);
    if (sendToPrimary(request)) {
        return Role::secondary;
    }
    // Nobody answered: any socket file there is a crashed instance's.
    QLocalServer::removeServer(socketPath_);
    server_ = std::make_unique<QLocalServer>();
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (server_->listen(socketPath_)) {
        QObject::connect(server_.get(), &QLocalServer::newConnection,
                         [this] { acceptConnections(); });
    }
    if (locked) {
        lock.unlock();
    }
    return Role::primary;
}

bool SingleInstance::sendToPrimary(const QString& request) {
    QLocalSocket socket;
    socket.connectToServer(socketPath_);
    if (!socket.waitForConnected(kConnectTimeoutMs)) {
        return false;
    }
    socket.write(request.toUtf8() + '\n');
    if (!socket.waitForBytesWritten(kConnectTimeoutMs)) {
        return false;
    }
    // The answer proves that a live instance read the request, not just that a socket accepted.
    while (socket.bytesAvailable() < kAcknowledgement.size()) {
        if (!socket.waitForReadyRead(kConnectTimeoutMs)) {
            return false;
        }
    }
    return socket.read(kAcknowledgement.size()) == kAcknowledgement;
}

void SingleInstance::acceptConnections() {
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > kMaximumRequestBytes) {
                    socket->abort();
                }
                return;
            }
            QString line = QString::fromUtf8(socket->readLine(kMaximumRequestBytes)).trimmed();
            socket->write(kAcknowledgement);
            socket->flush();
            socket->disconnectFromServer();
            if (onRequest_) {
                onRequest_(line);
            }
        });
    }
}

}  // namespace kelvo::app
