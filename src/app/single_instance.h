// One running program per user. The first start listens on a local socket named after the
// user's login name; a later start of the same user connects, hands over its argument list
// (argument_message.h), waits until the running instance has handled it and ends with exit
// code 0. Another user's start finds no socket of that name and runs on its own. A socket
// file left behind by a crash, which nobody answers on, is removed and taken over. The
// connect-or-listen step runs under a lock file so that two starts at the same moment
// cannot both become the first. User-interface thread only (it owns a QLocalServer).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <QObject>
#include <QString>

class QLocalServer;
class QLocalSocket;

namespace orvanta::app {

// "Orvanta.<user>.10180562_7e73_4c55_a206_da359ccedfdf"
std::string InstanceName(std::string_view userName);

// The login name of the user running the program.
std::string CurrentUserName();

// Where the socket lives: $XDG_RUNTIME_DIR (private to the user) when it exists, else the
// temporary folder.
std::string DefaultSocketFolder();

class SingleInstance final : public QObject {
    Q_OBJECT

public:
    enum class Role {
        First,      // listening: this process is the running instance
        Forwarded,  // the arguments went to the running instance: end with exit code 0
        Alone,      // no socket could be made: run on as a first instance without one
    };

    using ArgumentsHandler = std::function<void(const std::vector<std::string>&)>;

    SingleInstance(const std::string& folder, const std::string& name);
    ~SingleInstance() override;

    // Forwards `arguments` (without the program name) to a running instance or becomes the
    // running instance. Blocks while a running instance handles the arguments.
    Role Start(const std::vector<std::string>& arguments);

    // Called on the user-interface thread with each argument list a later start handed over;
    // the later start is answered when it returns.
    void SetHandler(ArgumentsHandler handler) { handler_ = std::move(handler); }

    // Stops listening (the end of the session): a start from now on becomes a first instance.
    void Close();

    const QString& SocketPath() const { return path_; }

private:
    bool Forward(const std::vector<std::string>& arguments);
    void Accept();

    QString path_;
    QString lockPath_;
    std::unique_ptr<QLocalServer> server_;
    ArgumentsHandler handler_;
};

}  // namespace orvanta::app
