#include "frame/main_frame.h"

#include <filesystem>

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QShortcut>
#include <QVBoxLayout>
#include <QWheelEvent>

#include "app/check_point.h"
#include "decode/decoded_picture.h"
#include "decode/wait_for_picture.h"
#include "display/gl_view.h"
#include "frame/display_failure.h"
#include "frame/key_table.h"
#include "frame/window_placement.h"
#include "i18n/current_language.h"
#include "list/picture_entry.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"

namespace orvanta::frame {

namespace {

constexpr int kMainAccelerators = 102;
constexpr int kWaitTimeoutMs = 60'000;
// How often and how long the frame looks whether the picture ahead has been decoded.
constexpr int kAheadLookMs = 50;
constexpr int kAheadLooks = 60;
constexpr qint64 kWindowRefreshMs = 5000;

QString Text(int id) {
    const std::string_view text = i18n::Text(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

platform::RegKey SettingsKey() {
    platform::RegKey key;
    platform::RegKey::Create(platform::RegistryStore::User(), settings::kSettingsKey, key);
    return key;
}

// The picture of `entry`, taken under its decode lock (the workers replace it under it, and
// hold it for a whole decode); none when the lock is not free within `wait`.
std::shared_ptr<const decode::DecodedPicture> PictureOf(
    list::PictureEntry& entry, std::chrono::milliseconds wait = std::chrono::milliseconds(200)) {
    std::unique_lock lock(entry.decodeLock, wait);
    if (!lock.owns_lock()) {
        return nullptr;
    }
    return entry.decodedPicture;
}

}  // namespace

MainFrame::MainFrame(std::uint32_t workers, QWidget* parent, bool accelerated)
    : QMainWindow(parent), decoder_(imaging::PixelFormat::Pbgra32, false) {
    decode::CacheServices services;
    services.decoder = &headStart_;
    services.notices = this;
    services.workers = workers;
    cache_ = std::make_unique<decode::DecodeCache>(services);
    list_ = std::make_unique<list::PictureList>(
        list::ListServices{this, cache_.get(), nullptr, platform::RegistryStore::User()});
    cache_->Attach(list_.get());

    auto* container = new QWidget(this);
    auto* layout = new QVBoxLayout(container);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    view_ = display::CreatePictureView(accelerated, container, accelerationFailed_);
    layout->addWidget(view_, 1);
    panel_ = new QWidget(container);
    panel_->setAutoFillBackground(true);
    auto* panelLayout = new QHBoxLayout(panel_);
    panelLayout->setContentsMargins(8, 3, 8, 3);
    fileLabel_ = new QLabel(panel_);
    fileLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    statusLabel_ = new QLabel(panel_);
    modeLabel_ = new QLabel(panel_);
    panelLayout->addWidget(fileLabel_, 1);
    panelLayout->addWidget(statusLabel_);
    panelLayout->addWidget(modeLabel_);
    layout->addWidget(panel_);
    setCentralWidget(container);
    setAcceptDrops(true);
    setWindowTitle(Text(100));
    resize(1280, 800);

    timer2_.setInterval(250);
    connect(&timer2_, &QTimer::timeout, this, &MainFrame::RefreshCaptionAndStatus);
    timer2_.start();
    timer4_.setSingleShot(true);
    timer4_.setInterval(50);
    connect(&timer4_, &QTimer::timeout, this, [this] {
        if (!pendingShot_.empty() && list_->GoTo(pendingShot_) != nullptr) {
            pendingShot_.clear();
            RunCommand(Command::kNext, -2);
        }
    });
    timer6_.setSingleShot(true);
    connect(&timer6_, &QTimer::timeout, this, [this] {
        if (settings::AutoHideTaskbar.On()) {
            panel_->hide();
        }
    });
    windowRefresh_.setSingleShot(true);
    connect(&windowRefresh_, &QTimer::timeout, this, [this] {
        lastWindowRefresh_.start();
        cache_->Replan(false);
        PrepareAhead(true);
    });
    aheadTimer_.setSingleShot(true);
    aheadTimer_.setInterval(kAheadLookMs);
    connect(&aheadTimer_, &QTimer::timeout, this, [this] { PrepareAhead(false); });
    ConnectView();
    timer8_.setSingleShot(true);
    timer8_.setInterval(1);
    connect(&timer8_, &QTimer::timeout, this, [this] { RunCommand(Command::kNext, 0); });
    BuildShortcuts();

    cache_->ResetWindow(false);
    cache_->Start();
}

MainFrame::~MainFrame() {
    timer2_.stop();
    if (markWriter_) {
        markWriter_->Stop();
    }
    list_->StopScan();
    cache_->ShutDown();
    list_.reset();
}

void MainFrame::ConnectView() {
    // The view's notices: the bottom panel follows the cursor and the buttons, the middle
    // button keeps the picture, and a failed accelerated display restarts the program.
    connect(view_, &display::PictureView::PanelHideRequested, this, [this] {
        if (settings::AutoHideTaskbar.On() && panel_->isVisible()) {
            timer6_.start(600);
        }
    });
    connect(view_, &display::PictureView::PanelShowRequested, this, [this] {
        if (!panel_->isVisible()) {
            ShowPanel();
        }
    });
    connect(view_, &display::PictureView::KeepRequested, this, [] { QApplication::beep(); });
    connect(view_, &display::PictureView::DisplayFailed, this, &MainFrame::DisplayFailed,
            Qt::QueuedConnection);
    connect(view_, &display::PictureView::Settled, this, [this] { PrepareAhead(true); });
}

void MainFrame::PrepareAhead(bool firstLook) {
    if (firstLook) {
        aheadLooks_ = 0;
    }
    std::shared_ptr<const decode::DecodedPicture> ahead;
    bool decoding = false;
    list_->VisitWindow([&](const list::ListWindow& window) {
        const list::PictureEntry* current = window.Current();
        if (current == nullptr || window.Count() < 2) {
            return;
        }
        list::PictureEntry* next = window.Neighbour(*current, forward_);
        // Queued or being decoded: worth another look. Never waits for a worker.
        decoding = next->decoding.load();
        ahead = PictureOf(*next, std::chrono::milliseconds(0));
    });
    if (ahead != nullptr) {
        aheadTimer_.stop();
        view_->Prepare(std::move(ahead));
    } else if (decoding && ++aheadLooks_ < kAheadLooks) {
        aheadTimer_.start();
    } else {
        aheadTimer_.stop();
    }
}

void MainFrame::DisplayFailed() {
    if (relaunch_) {
        return;
    }
    view_->unsetCursor();
    ShowDisplayFailure(this);
    DisableAcceleration();
    std::string keepFolder;
    platform::RegKey key = SettingsKey();
    if (key.IsOpen()) {
        settings::ReadString(key, "LastKeepCopyFolder", keepFolder, 4096);
    }
    relaunch_ = RelaunchArguments(list_->Folder().string(), keepFolder);
    close();
}

void MainFrame::BuildShortcuts() {
    const i18n::LanguageModule* module = i18n::CurrentLanguage();
    const auto* table = module ? module->FindAccelerators(kMainAccelerators) : nullptr;
    if (table == nullptr) {
        return;
    }
    for (const Shortcut& shortcut : Shortcuts(*table)) {
        if (shortcut.keys.isEmpty()) {
            continue;
        }
        auto* item = new QShortcut(shortcut.keys, this);
        item->setContext(Qt::WindowShortcut);
        const int command = shortcut.command;
        connect(item, &QShortcut::activated, this,
                [this, command] { RunCommand(command, 0, true); });
    }
}

void MainFrame::DecodeAhead(const std::string& file) {
    headStart_.Begin(std::filesystem::path(file));
}

void MainFrame::ShowStartPicture() {
    SetCheckPoint(70);
    QString text = Text(10051);
    text += settings::AutoHideTaskbar.On() ? ", " + Text(10050) : QStringLiteral(".");
    view_->ShowStartPicture(text);
    RefreshCaptionAndStatus();
}

bool MainFrame::OpenFolder(const std::string& folder, const std::string& fileToShow) {
    return list_->OpenFolder(
        std::filesystem::path(folder),
        fileToShow.empty() ? std::filesystem::path{} : std::filesystem::path(fileToShow));
}

bool MainFrame::OpenList(const std::string& joined) {
    if (trace_) {
        std::fprintf(stderr, "orvanta: opening %s\n", joined.c_str());
    }
    modes_.autoMode = false;
    modes_.trackMode = false;
    std::vector<std::string> entries;
    std::size_t start = 0;
    while (start < joined.size()) {
        const std::size_t end = joined.find('|', start);
        const std::string item =
            joined.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!item.empty()) {
            entries.push_back(item);
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    bool folderOpened = false;
    bool first = true;
    for (const std::string& item : entries) {
        std::error_code error;
        const auto path = std::filesystem::path(item);
        if (std::filesystem::is_directory(path, error)) {
            if (!first) {
                QMessageBox::warning(this, Text(10085), QString::fromStdString(item));
                return false;
            }
            folderOpened = OpenFolder(item);
        } else if (folderOpened) {
            QMessageBox::warning(this, Text(10085), QString::fromStdString(item));
            return false;
        } else {
            if (first) {
                // The first file opens its folder and is shown as soon as the scan finds it;
                // the files after it join the same list.
                if (!list_->OpenFolder(path.parent_path(), path)) {
                    return false;
                }
            } else {
                list_->AddFile(path, std::nullopt, true);
            }
        }
        first = false;
    }
    return true;
}

void MainFrame::SetModes(const ModeFlags& modes) {
    modes_ = modes;
    RefreshCaptionAndStatus();
}

void MainFrame::RunCommand(int command, int param, bool fromAccelerator) {
    list::PictureEntry* entry = nullptr;
    const bool internal = param == Command::kFirstPicture || param == -3;
    if (!internal && modes_.autoMode) {
        modes_.autoMode = false;
    }
    if ((command >= Command::kMarkFirst && command <= Command::kMarkLast) ||
        command == Command::kSpeakMarks) {
        RunMarkCommand(command);
        return;
    }
    QElapsedTimer clock;
    clock.start();
    switch (command) {
        case Command::kPrevious:
            SetCheckPoint(250);
            entry = list_->Previous();
            break;
        case Command::kNext:
        case Command::kNextHidingCursor:
            SetCheckPoint(251);
            entry = param == Command::kFirstPicture || param == -2 ? list_->Current()
                                                                   : list_->Next(1, param == -3);
            if (command == Command::kNextHidingCursor) {
                view_->setCursor(Qt::BlankCursor);
            }
            break;
        case Command::kFirst:
            entry = list_->First();
            break;
        case Command::kLast:
            entry = list_->Last();
            break;
        case Command::kNextTen:
            entry = list_->Next(10);
            break;
        case Command::kPreviousTen:
            entry = list_->Previous(10);
            break;
        case Command::kNextFile:
        case Command::kPreviousFile: {
            const bool forward = command == Command::kNextFile;
            entry = list_->Current();
            std::uint32_t steps = 1;
            if (entry != nullptr && entry->IsFrame()) {
                steps = forward ? entry->frameCount - entry->frameIndex : entry->frameIndex + 1u;
            }
            entry = forward ? list_->Next(steps) : list_->Previous(steps);
            break;
        }
        case Command::kActualSize:
            view_->setFocus();
            if (settings::AutoHideTaskbar.On()) {
                timer6_.start(600);
            }
            view_->ToggleActualSize();
            return;
        default:
            return;
    }
    if (entry == nullptr) {
        return;
    }
    forward_ = command != Command::kPrevious && command != Command::kPreviousTen &&
               command != Command::kPreviousFile && command != Command::kLast;
    ShowCurrent(entry, fromAccelerator || param == Command::kFirstPicture);
    if (trace_) {
        std::fprintf(stderr, "orvanta: command %d to picture shown %.2f ms\n", command,
                     static_cast<double>(clock.nsecsElapsed()) / 1e6);
    }
}

void MainFrame::ShowCurrent(list::PictureEntry* entry, bool startTimer6) {
    aheadTimer_.stop();
    decode::WaitRequest wait;
    wait.timeout = std::chrono::milliseconds(kWaitTimeoutMs);
    const Result result = decode::WaitForPicture(*entry, wait, this);
    auto picture = result.Succeeded() ? PictureOf(*entry) : nullptr;
    if (picture) {
        view_->SetStamps(entry->copied.load(), false);
        view_->SetPicture(std::move(picture));
    } else if (result != S_FALSE) {
        view_->ShowErrorPicture();
    }
    RefreshCaptionAndStatus();
    if (startTimer6) {
        timer6_.start(600);
    }
    emit PictureShown();
}

void MainFrame::RefreshCaptionAndStatus() {
    StatusInput status;
    LabelEntry label;
    bool hasEntry = false;
    list::PictureEntry* entry = list_->Current();
    status.position = list_->Position();
    status.count = list_->Count();
    status.scanning = !list_->ScanComplete();
    status.sortOrder = list_->SortMode();
    if (entry != nullptr) {
        hasEntry = true;
        label.basePath = entry->BasePathCopy();
        label.extensionText = list_->ExtensionSetOf(*entry);
        label.frameIndex = entry->frameIndex;
        label.frameCount = entry->frameCount;
        if (const auto& picture = view_->Picture()) {
            status.hasPicture = true;
            status.width = entry->width != 0 ? entry->width : picture->width;
            status.height = entry->height != 0 ? entry->height : picture->height;
            status.bitsPerPixel = picture->sourceBitsPerPixel;
        }
        status.kept = entry->copied.load();
        status.rating = entry->marks.rating;
        status.label = entry->marks.label;
        status.labellingConvention = entry->marks.labellingConvention;
        status.urgency = entry->marks.urgency;
        view_->SetMarks(entry->marks);
    } else {
        view_->SetMarks({});
    }
    const QRect shown = view_->LastDestination();
    if (const auto& picture = view_->Picture(); picture && picture->width != 0) {
        status.zoomPercent = static_cast<std::int32_t>(
            (static_cast<std::int64_t>(shown.width()) * 100 + picture->width / 2) / picture->width);
        status.enlarged = shown.width() > static_cast<int>(picture->width);
    }
    status.mode = modes_.cameraMode  ? RunningMode::Camera
                  : modes_.trackMode ? RunningMode::Track
                  : modes_.autoMode  ? RunningMode::Auto
                                     : RunningMode::None;
    const std::string line = StatusLine(status, [](int id) { return std::string(i18n::Text(id)); });
    statusLabel_->setText(statusOverride_.empty() ? QString::fromStdString(line)
                                                  : QString::fromStdString(statusOverride_));
    QStringList modes;
    if (modes_.autoMode) {
        modes << QStringLiteral("AUTO");
    }
    if (modes_.trackMode) {
        modes << QStringLiteral("TRACK");
    }
    if (modes_.cameraMode) {
        modes << QStringLiteral("CAMERA");
    }
    modeLabel_->setText(modes.join(' '));
    const CaptionUpdate update = caption_.Refresh(
        hasEntry ? &label : nullptr, waiting_, i18n::Text(10060),
        settings::EnableFileNameInCaption.On(), i18n::Text(100), windowTitle().toStdString());
    if (update.labelChanged) {
        fileLabel_->setText(QString::fromStdString(update.label));
    }
    if (update.caption) {
        setWindowTitle(QString::fromStdString(*update.caption));
    }
}

QString MainFrame::StatusLineText() const {
    return statusLabel_->text();
}

QString MainFrame::FileLabelText() const {
    return fileLabel_->text();
}

void MainFrame::ShowPanel() {
    timer6_.stop();
    panel_->show();
}

// --- notices from the list and the cache ----------------------------------------------

void MainFrame::ListGrew464(std::uint32_t count, std::uint32_t delay) {
    QMetaObject::invokeMethod(
        this,
        [this, count, delay] {
            if (count == 0) {
                QTimer::singleShot(static_cast<int>(delay), this,
                                   [this] { RunCommand(Command::kNext, Command::kFirstPicture); });
            } else if (!windowRefresh_.isActive()) {
                // The first picture became current while the list held only the first few
                // files, so its window was cut short: the decodes it lacks are queued now, and
                // again at most every 5 s while the list keeps growing.
                const qint64 since =
                    lastWindowRefresh_.isValid() ? lastWindowRefresh_.elapsed() : kWindowRefreshMs;
                windowRefresh_.start(
                    static_cast<int>(std::max<qint64>(0, kWindowRefreshMs - since)));
            }
        },
        Qt::QueuedConnection);
}

void MainFrame::StatusText46A(int textId) {
    QMetaObject::invokeMethod(
        this, [this, textId] { statusLabel_->setText(Text(textId)); }, Qt::QueuedConnection);
}

void MainFrame::NewShot46B(std::uint32_t, std::string basePath) {
    QMetaObject::invokeMethod(
        this,
        [this, basePath = std::move(basePath)] {
            pendingShot_ = basePath;
            timer4_.start();
        },
        Qt::QueuedConnection);
}

void MainFrame::EntryRemoved479(const list::PictureEntry& entry) {
    // Sent with the list lock held: the entry goes as soon as this returns, so only its
    // picture's identity is compared, later, on this thread.
    const auto* picture = entry.decodedPicture.get();
    QMetaObject::invokeMethod(
        this,
        [this, picture] {
            if (picture != nullptr && view_->Picture().get() == picture) {
                if (list::PictureEntry* current = list_->Current()) {
                    ShowCurrent(current, false);
                } else {
                    ShowStartPicture();
                }
            }
        },
        Qt::QueuedConnection);
}

void MainFrame::EntryChanged483(const list::PictureEntry& entry) {
    const std::string basePath = entry.BasePathCopy();
    QMetaObject::invokeMethod(
        this,
        [this, basePath] {
            list::PictureEntry* current = list_->Current();
            if (current != nullptr && current->BasePathCopy() == basePath) {
                ShowCurrent(current, false);
            }
        },
        Qt::QueuedConnection);
}

void MainFrame::Beep(list::BeepKind) {
    QMetaObject::invokeMethod(
        this, [] { QApplication::beep(); }, Qt::QueuedConnection);
}

void MainFrame::Waiting467(const list::PictureEntry&) {
    waiting_ = true;
    RefreshCaptionAndStatus();
}

void MainFrame::WaitOver468(bool, const list::PictureEntry&) {
    waiting_ = false;
}

void MainFrame::MemoryRanOut46F() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (isFullScreen()) {
                showNormal();
            }
        },
        Qt::QueuedConnection);
}

void MainFrame::OutOfMemoryMessage(int textId) {
    QMetaObject::invokeMethod(
        this, [this, textId] { QMessageBox::warning(this, Text(100), Text(textId)); },
        Qt::QueuedConnection);
}

// --- input ------------------------------------------------------------------------------

void MainFrame::wheelEvent(QWheelEvent* event) {
    const int delta = event->angleDelta().y();
    if (delta > 0) {
        RunCommand(Command::kPrevious);
    } else if (delta < 0) {
        RunCommand(Command::kNext);
    }
    event->accept();
}

void MainFrame::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::BackButton) {
        RunCommand(Command::kPrevious);
    } else if (event->button() == Qt::ForwardButton) {
        RunCommand(Command::kNext);
    } else {
        QMainWindow::mousePressEvent(event);
    }
}

void MainFrame::keyPressEvent(QKeyEvent* event) {
    // Digit keys whose shortcut did not fire: Shift+3 arrives as '#' on most layouts.
    if (const int digit = DigitOfKey(*event); digit >= 0) {
        RunCommand(Command::kMarkFirst + digit, 0, true);
        return;
    }
    // Arrow keys when the key table leaves them free.
    switch (event->key()) {
        case Qt::Key_Right:
        case Qt::Key_Space:
            RunCommand(Command::kNext, 0, true);
            return;
        case Qt::Key_Left:
        case Qt::Key_Backspace:
            RunCommand(Command::kPrevious, 0, true);
            return;
        case Qt::Key_Home:
            RunCommand(Command::kFirst, 0, true);
            return;
        case Qt::Key_End:
            RunCommand(Command::kLast, 0, true);
            return;
        default:
            QMainWindow::keyPressEvent(event);
    }
}

void MainFrame::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) {
        event->acceptProposedAction();
    }
}

void MainFrame::dropEvent(QDropEvent* event) {
    if (!view_->geometry().contains(
            view_->parentWidget()->mapFrom(this, event->position().toPoint()))) {
        return;
    }
    std::string joined;
    for (const QUrl& url : event->mimeData()->urls()) {
        const QString path = url.toLocalFile();
        if (!path.isEmpty() && path.size() <= 260) {
            joined += path.toStdString() + "|";
        }
    }
    if (!joined.empty()) {
        OpenList(joined);
    }
}

// --- closing ----------------------------------------------------------------------------

void MainFrame::closeEvent(QCloseEvent* event) {
    if (closed_) {
        event->accept();
        return;
    }
    if (!WaitForPendingFileWork()) {
        event->ignore();
        return;
    }
    closed_ = true;
    if (markWriter_) {
        markWriter_->Stop();
    }
    platform::RegKey key = SettingsKey();
    std::string lastViewed;
    if (settings::ReuseLastPictureFolder.On()) {
        if (list::PictureEntry* entry = list_->Current()) {
            std::error_code error;
            const std::string extensions = list_->ExtensionSetOf(*entry);
            const auto relative = std::filesystem::relative(
                std::filesystem::path(entry->BasePathCopy() + "." +
                                      extensions.substr(0, extensions.find(';'))),
                list_->Folder(), error);
            if (!error) {
                lastViewed = relative.string();
            }
        }
    }
    list_->StopScan();
    cache_->ShutDown();
    if (key.IsOpen()) {
        settings::WriteString(key, "AppWindow", SaveWindowPlacement(*this));
        settings::WriteDword(key, "Maximized", isMaximized() ? 1 : 0);
        settings::WriteDword(key, "KioskMode", 0);
        if (lastViewed.empty()) {
            key.DeleteValue("LastImageViewed");
        } else {
            settings::WriteString(key, "LastImageViewed", lastViewed);
        }
    }
    event->accept();
    // A normal session ends with exit code 1.
    QCoreApplication::exit(1);
}

}  // namespace orvanta::frame
