#include "app/run_operation.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QProcess>
#include <QScreen>
#include <QThread>
#include <QTimer>

#include "app/check_point.h"
#include "app/language_startup.h"
#include "app/single_instance.h"
#include "app/startup_trace.h"
#include "app/wake_up_receiver.h"
#include "cmdline/command_line.h"
#include "cmdline/startup_request.h"
#include "display/picture_view.h"
#include "frame/main_frame.h"
#include "frame/window_placement.h"
#include "i18n/current_language.h"
#include "marks/mark_stores.h"
#include "marks/sidecar_file.h"
#include "platform/imaging/component_list.h"
#include "platform/imaging/guid.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"
#include "settings/settings_loader.h"

namespace orvanta::app {

namespace {

constexpr std::string_view kSwitchPrefixes = "-/";

std::string ReadStringValue(std::string_view name) {
    platform::RegKey key;
    std::string value;
    if (platform::RegKey::Open(platform::RegistryStore::User(), settings::kSettingsKey, key) == 0) {
        settings::ReadString(key, name, value, 4096);
    }
    return value;
}

std::uint32_t ReadDwordValue(std::string_view name) {
    platform::RegKey key;
    std::uint32_t value = 0;
    if (platform::RegKey::Open(platform::RegistryStore::User(), settings::kSettingsKey, key) == 0) {
        settings::ReadDword(key, name, value);
    }
    return value;
}

// A termination request closes the frame as the user would, so the session is saved.
std::atomic<bool> terminationRequested{false};

void OnTerminate(int) {
    terminationRequested.store(true);
}

}  // namespace

void StartupTasks() {
    SetCheckPoint(27);
    SetCheckPoint(28);
    // Loading the HD Photo codec now keeps its first picture from waiting for it.
    auto& components = imaging::ComponentList::Instance();
    (void)components.Find(imaging::container::Wmp, imaging::vendor::Microsoft);
    // Plug-ins and the update check join here when they exist.
    SetCheckPoint(29);
}

int RunProgram(int argc, char** argv) {
    QElapsedTimer sinceStart;
    sinceStart.start();
    SetCheckPoint(99);
    TraceStartup("main entered");
    std::vector<std::string> arguments(argv, argv + argc);
    SetCheckPoint(104);
    // The single-instance test before anything is shown.
    QApplication application(argc, argv);
    SetCheckPoint(114);
    TraceStartup("application made");
    SingleInstance instance(DefaultSocketFolder(), InstanceName(CurrentUserName()));
    SetCheckPoint(115);
    const std::vector<std::string> handedOver(arguments.begin() + 1, arguments.end());
    if (instance.Start(handedOver) == SingleInstance::Role::Forwarded) {
        SetCheckPoint(117);
        return 0;
    }
    SetCheckPoint(118);
    TraceStartup("single-instance test passed");

    // Run operation.
    SetCheckPoint(37);
    cmdline::TokenSet tokens = cmdline::TokenSet::FromArguments(arguments, kSwitchPrefixes);
    const cmdline::StartupRequest request = cmdline::ReadStartupRequest(tokens);
    SetCheckPoint(38);
    MessageBoxLanguageNotices languageNotices;
    const auto programFolder =
        std::filesystem::path(QCoreApplication::applicationDirPath().toStdString());
    if (!LoadLanguage(request, programFolder, languageNotices)) {
        return -1;
    }
    SetCheckPoint(39);
    TraceStartup("language loaded");
    SetCheckPoint(40);
    SetCheckPoint(41);
    settings::LoadSettings(platform::RegistryStore::User());
    marks::InstallSidecarReader();
    SetCheckPoint(51);
    TraceStartup("settings loaded");
    if (request.colorProfile.value && !request.colorProfile.value->empty()) {
        const std::string profile = settings::TargetProfileFromName(*request.colorProfile.value);
        if (!profile.empty()) {
            settings::EnableICC.Set(1);
        }
    }

    // The accelerated view unless it is switched off or no OpenGL context can be made.
    auto frame = std::make_unique<frame::MainFrame>(0, nullptr, !settings::DisableHWA.On());
    frame->SetTrace(StartupTraceOn());
    // The file to be shown first decodes on the other core while the window is made and
    // shown; its entry takes the picture once the list has found it.
    if (!request.imageFolder.present) {
        const std::string first = request.plain.substr(0, request.plain.find('|'));
        std::error_code error;
        if (!first.empty() && std::filesystem::is_regular_file(first, error)) {
            frame->DecodeAhead(first);
        }
    }
    frame->AttachMarkStores(marks::FileMarkStores());
    SetCheckPoint(52);
    TraceStartup("frame made");
    SetCheckPoint(53);
    std::thread(StartupTasks).detach();

    SetCheckPoint(54);
    const bool maximized = ReadDwordValue("Maximized") != 0;
    const bool kioskSetting = ReadDwordValue("KioskMode") != 0;
    frame::ModeFlags modes;
    SetCheckPoint(55);
    if (request.autoMode.present) {
        std::uint32_t interval = settings::AutoModeInterval.Get();
        if (request.autoMode.value) {
            interval = static_cast<std::uint32_t>(
                std::strtoul(request.autoMode.value->c_str(), nullptr, 10));
        }
        modes.autoInterval = std::max<std::uint32_t>(interval, 10);
        modes.autoMode = true;
    }
    SetCheckPoint(56);
    if (request.trackMode.present) {
        modes.trackMode = true;
        modes.autoMode = false;
    }
    SetCheckPoint(57);
    if (request.ptpMode.present) {
        modes.cameraMode = true;
        modes.trackMode = false;
        modes.autoMode = false;
    }
    SetCheckPoint(58);

    const std::string placement = ReadStringValue("AppWindow");
    SetCheckPoint(60);
    frame::RestoreWindowPlacement(
        *frame, placement.empty() ? std::nullopt : std::optional<std::string_view>(placement), 0,
        true);
    if (request.monitor.present) {
        const int number = request.monitor.value ? std::atoi(request.monitor.value->c_str()) : 1;
        const auto screens = QGuiApplication::screens();
        if (number >= 1 && number <= screens.size()) {
            frame->move(screens[number - 1]->availableGeometry().topLeft());
        }
    }
    SetCheckPoint(65);
    const bool kiosk = kioskSetting || request.kiosk.present;
    SetCheckPoint(66);
    if (kiosk) {
        frame->showFullScreen();
    } else if (maximized) {
        frame->showMaximized();
    } else {
        frame->show();
    }
    SetCheckPoint(68);
    TraceStartup("window shown");
    SetCheckPoint(69);
    SetCheckPoint(70);
    frame->ShowStartPicture();
    SetCheckPoint(71);
    SetCheckPoint(72);

    WakeUpReceiver wakeUp(WakeUpActions{
        [&frame] {
            if (frame->isMinimized()) {
                frame->showNormal();
            }
            frame->raise();
            frame->activateWindow();
        },
        [&frame](const std::string& list) { return frame->OpenList(list); },
        [&frame](const std::string& folder) {
            return frame->OpenFolder(folder.empty() ? QDir::homePath().toStdString() + "/Pictures"
                                                    : folder);
        },
        [](const std::string&) {}});
    instance.SetHandler([&wakeUp](const std::vector<std::string>& args) { wakeUp.Receive(args); });

    if (request.imageFolder.present) {
        SetCheckPoint(73);
        const std::string folder = request.imageFolder.value && !request.imageFolder.value->empty()
                                       ? *request.imageFolder.value
                                       : QDir::homePath().toStdString() + "/Pictures";
        if (frame->OpenFolder(folder) && frame->List().OnNetwork()) {
            modes.trackMode = false;
        }
        SetCheckPoint(74);
    } else if (!request.plain.empty()) {
        SetCheckPoint(75);
        frame->OpenList(request.plain);
        SetCheckPoint(76);
    } else if (settings::ReuseLastPictureFolder.On()) {
        SetCheckPoint(77);
        const std::string folder = ReadStringValue("LastPictureFolder");
        std::error_code error;
        if (!folder.empty() &&
            std::filesystem::is_directory(std::filesystem::path(folder), error)) {
            const std::string last = ReadStringValue("LastImageViewed");
            std::string show;
            if (!last.empty() &&
                std::filesystem::exists(std::filesystem::path(folder) / std::filesystem::path(last),
                                        error)) {
                show = (std::filesystem::path(folder) / std::filesystem::path(last)).string();
            }
            frame->OpenFolder(folder, show);
        }
    }
    SetCheckPoint(81);
    TraceStartup("command line opened");
    SetCheckPoint(85);
    if (frame->AccelerationFailed()) {
        QTimer::singleShot(200, frame.get(), [frame = frame.get()] {
            const std::string_view title = i18n::Text(100);
            const std::string_view text = i18n::Text(10170);
            QMessageBox::information(
                frame, QString::fromUtf8(title.data(), static_cast<qsizetype>(title.size())),
                QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
        });
    }
    SetCheckPoint(87);
    SetCheckPoint(89);
    SetCheckPoint(90);
    SetCheckPoint(91);
    SetCheckPoint(92);
    frame->SetModes(modes);

    if (StartupTraceOn()) {
        // The first paint of a picture (not the start picture) after the process began.
        auto* view = &frame->View();
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection =
            QObject::connect(view, &display::PictureView::Painted, [view, connection, sinceStart] {
                if (view->Picture()) {
                    // The wall-clock time lets a script count from before the process began.
                    std::fprintf(stderr,
                                 "orvanta: first picture painted %.1f ms after start, at %lld ms\n",
                                 static_cast<double>(sinceStart.nsecsElapsed()) / 1e6,
                                 static_cast<long long>(QDateTime::currentMSecsSinceEpoch()));
                    QObject::disconnect(*connection);
                }
            });
    }

    std::signal(SIGTERM, OnTerminate);
    std::signal(SIGINT, OnTerminate);
    QTimer terminationWatch;
    QObject::connect(&terminationWatch, &QTimer::timeout, [&frame] {
        if (terminationRequested.exchange(false)) {
            frame->close();
        }
    });
    terminationWatch.start(100);

    SetCheckPoint(93);
    TraceStartup("message loop entered");
    const int code = QApplication::exec();
    SetCheckPoint(94);
    instance.Close();
    // After a failed accelerated display the program starts again without it, once the
    // single-instance name is free.
    std::optional<std::vector<std::string>> relaunch = frame->RelaunchRequest();
    frame.reset();
    if (relaunch) {
        QStringList list;
        for (const std::string& argument : *relaunch) {
            list << QString::fromStdString(argument);
        }
        QProcess::startDetached(QCoreApplication::applicationFilePath(), list);
    }
    SetCheckPoint(95);
    SetCheckPoint(98);
    return code;
}

}  // namespace orvanta::app
