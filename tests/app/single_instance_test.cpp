#include "app/single_instance.h"

#include <future>

#include <QCoreApplication>
#include <QLocalSocket>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "app/wake_up_receiver.h"
#include "support/temp_folder.h"

namespace orvanta::app {
namespace {

using Args = std::vector<std::string>;

QCoreApplication& App() {
    static int argc = 1;
    static char name[] = "single_instance_test";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Runs the user-interface thread's events until `done` is ready; a later start blocks
// until the running instance answers, so it runs on a thread of its own.
template <typename T>
T RunUntil(std::future<T>& done) {
    while (done.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return done.get();
}

SingleInstance::Role StartElsewhere(const std::string& folder, const std::string& name, Args args) {
    auto done = std::async(std::launch::async, [=] {
        SingleInstance later(folder, name);
        return later.Start(args);
    });
    return RunUntil(done);
}

class SingleInstanceTest : public testing::Test {
protected:
    void SetUp() override { App(); }
    std::string Folder() const { return folder_.Path().string(); }
    test::TempFolder folder_;
};

TEST_F(SingleInstanceTest, LaterStartHandsItsArgumentsToTheRunningInstance) {
    SingleInstance first(Folder(), InstanceName("ann"));
    std::vector<Args> received;
    first.SetHandler([&](const Args& args) { received.push_back(args); });
    ASSERT_EQ(first.Start({"-i", "/shots"}), SingleInstance::Role::First);

    Args forwarded = {"/shots/a b.jpg", "-c", std::string(100000, 'k')};
    EXPECT_EQ(StartElsewhere(Folder(), InstanceName("ann"), forwarded),
              SingleInstance::Role::Forwarded);
    EXPECT_EQ(StartElsewhere(Folder(), InstanceName("ann"), {}), SingleInstance::Role::Forwarded);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0], forwarded);
    EXPECT_EQ(received[1], Args{});

    // Another user's name is an instance of its own.
    EXPECT_NE(InstanceName("ann"), InstanceName("bob"));
    SingleInstance other(Folder(), InstanceName("bob"));
    EXPECT_EQ(other.Start({}), SingleInstance::Role::First);
    EXPECT_EQ(received.size(), 2u);

    // Once the running instance stops listening, the next start is a first instance.
    first.Close();
    SingleInstance next(Folder(), InstanceName("ann"));
    EXPECT_EQ(next.Start({}), SingleInstance::Role::First);
}

TEST_F(SingleInstanceTest, StaleSocketOfACrashedInstanceIsTakenOver) {
    std::string name = InstanceName("ann");
    std::string path = Folder() + "/" + name;
    {
        // A socket file nobody listens on, as a crash leaves it behind.
        int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_GE(fd, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ASSERT_LT(path.size(), sizeof address.sun_path);
        std::copy(path.begin(), path.end(), address.sun_path);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
    }
    SingleInstance first(Folder(), name);
    EXPECT_EQ(first.Start({}), SingleInstance::Role::First);
    int handled = 0;
    first.SetHandler([&](const Args&) { ++handled; });
    EXPECT_EQ(StartElsewhere(Folder(), name, {"x"}), SingleInstance::Role::Forwarded);
    EXPECT_EQ(handled, 1);
}

TEST_F(SingleInstanceTest, GarbageFromAStrayClientIsDroppedAndTheInstanceGoesOn) {
    SingleInstance first(Folder(), InstanceName("ann"));
    int handled = 0;
    first.SetHandler([&](const Args&) { ++handled; });
    ASSERT_EQ(first.Start({}), SingleInstance::Role::First);

    auto stray = std::async(std::launch::async, [path = first.SocketPath()] {
        QLocalSocket socket;
        socket.connectToServer(path);
        if (!socket.waitForConnected(5000)) {
            return false;
        }
        socket.write("\xFF\xFF\xFF\xFFgarbage", 11);
        socket.waitForBytesWritten(5000);
        // The instance hangs up without an answer.
        socket.waitForDisconnected(30000);
        return socket.bytesAvailable() == 0;
    });
    EXPECT_TRUE(RunUntil(stray));
    EXPECT_EQ(handled, 0);
    EXPECT_EQ(StartElsewhere(Folder(), InstanceName("ann"), {"ok"}),
              SingleInstance::Role::Forwarded);
    EXPECT_EQ(handled, 1);
}

TEST_F(SingleInstanceTest, ReceiverOpensAndKeepsTheCoolDown) {
    std::vector<std::string> calls;
    bool folderOpens = true;
    WakeUpActions actions;
    actions.restoreAndRaise = [&] { calls.push_back("raise"); };
    actions.openList = [&](const std::string& list) {
        calls.push_back("list " + list);
        return true;
    };
    actions.openFolder = [&](const std::string& folder) {
        calls.push_back("folder " + folder);
        return folderOpens;
    };
    actions.setKeepFolder = [&](const std::string& folder) { calls.push_back("keep " + folder); };
    WakeUpReceiver receiver(actions, 600000);

    receiver.Receive({"/shots/a.jpg"});
    EXPECT_EQ(calls, (Args{"raise", "list /shots/a.jpg|"}));
    EXPECT_FALSE(receiver.CoolingDown());

    // A folder that fails to open sets no keep folder and starts no cool-down.
    calls.clear();
    folderOpens = false;
    receiver.Receive({"-i", "/shots/gone", "-c", "/keep"});
    EXPECT_EQ(calls, (Args{"raise", "folder /shots/gone"}));
    EXPECT_FALSE(receiver.CoolingDown());

    calls.clear();
    folderOpens = true;
    receiver.Receive({"-i", "/shots/today", "-c", "/keep"});
    EXPECT_EQ(calls, (Args{"raise", "folder /shots/today", "keep /keep"}));
    EXPECT_TRUE(receiver.CoolingDown());

    // Within the cool-down a wake-up is dropped, not even raising the window.
    calls.clear();
    receiver.Receive({"/shots/b.jpg"});
    EXPECT_TRUE(calls.empty());
    receiver.EndCoolDown();
    receiver.Receive({"/shots/b.jpg"});
    EXPECT_EQ(calls, (Args{"raise", "list /shots/b.jpg|"}));
}

}  // namespace
}  // namespace orvanta::app
