#include "app/single_instance.h"

#include <cerrno>
#include <cstdlib>

#include <QDir>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include "app/argument_message.h"

namespace orvanta::app {
namespace {

// How long a later start waits: to connect (the running instance answers at once when its
// loop runs), and for the answer (the running instance may be busy opening a folder).
constexpr int kConnectMs = 3000;
constexpr int kAnswerMs = 60000;

// An exclusive lock on a file beside the socket, held for the connect-or-listen step.
class FolderLock {
public:
    explicit FolderLock(const QString& path)
        : fd_(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (fd_ >= 0) {
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FolderLock() {
        if (fd_ >= 0) {
            ::close(fd_);  // releases the lock
        }
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int fd_;
};

}  // namespace

std::string InstanceName(std::string_view userName) {
    return "Orvanta." + std::string(userName) + ".10180562_7e73_4c55_a206_da359ccedfdf";
}

std::string CurrentUserName() {
    if (const passwd* entry = ::getpwuid(::geteuid()); entry && entry->pw_name) {
        return entry->pw_name;
    }
    if (const char* user = std::getenv("USER"); user && *user) {
        return user;
    }
    return std::to_string(::geteuid());
}

std::string DefaultSocketFolder() {
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime && *runtime) {
        if (QFileInfo(QString::fromLocal8Bit(runtime)).isDir()) {
            return runtime;
        }
    }
    return QDir::tempPath().toStdString();
}

SingleInstance::SingleInstance(const std::string& folder, const std::string& name)
    : path_(QDir(QString::fromStdString(folder)).filePath(QString::fromStdString(name))),
      lockPath_(path_ + QStringLiteral(".lock")) {
}

SingleInstance::~SingleInstance() {
    Close();
}

SingleInstance::Role SingleInstance::Start(const std::vector<std::string>& arguments) {
    FolderLock lock(lockPath_);
    if (Forward(arguments)) {
        return Role::Forwarded;
    }
    // Nobody answered: whatever socket file is there was left by a process that ended.
    QLocalServer::removeServer(path_);
    server_ = std::make_unique<QLocalServer>();
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(path_)) {
        server_.reset();
        return Role::Alone;
    }
    connect(server_.get(), &QLocalServer::newConnection, this, &SingleInstance::Accept);
    return Role::First;
}

bool SingleInstance::Forward(const std::vector<std::string>& arguments) {
    QLocalSocket socket;
    socket.connectToServer(path_);
    if (!socket.waitForConnected(kConnectMs)) {
        return false;
    }
    QByteArray message = QByteArray::fromStdString(EncodeArguments(arguments));
    socket.write(message);
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(kConnectMs)) {
            // A listener that takes nothing is not a running instance of ours.
            return false;
        }
    }
    // Handed over: even without an answer this start ends, as the other one has the list.
    socket.waitForReadyRead(kAnswerMs);
    socket.disconnectFromServer();
    return true;
}

void SingleInstance::Accept() {
    while (QLocalSocket* socket = server_ ? server_->nextPendingConnection() : nullptr) {
        auto reader = std::make_shared<ArgumentReader>();
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket, reader] {
            QByteArray bytes = socket->readAll();
            switch (reader->Add(std::string_view(bytes.constData(), bytes.size()))) {
                case ArgumentReader::State::NeedMore:
                    return;
                case ArgumentReader::State::Bad:
                    socket->abort();
                    return;
                case ArgumentReader::State::Done:
                    if (handler_) {
                        handler_(reader->Arguments());
                    }
                    socket->write(&kHandled, 1);
                    socket->flush();
                    socket->disconnectFromServer();
                    return;
            }
        });
    }
}

void SingleInstance::Close() {
    if (server_) {
        server_->close();
        server_.reset();
    }
}

}  // namespace orvanta::app
