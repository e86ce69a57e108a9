// The main frame window: the picture view above the bottom panel (file label, status line,
// mode indicators), the picture list with its decode cache and workers, the navigation
// commands reached through the language module's key table, the wheel and the back and
// forward mouse buttons, opening lists of entries from the command line, a wake-up or a
// drop, and the closing order that saves the session.
//
// Thread rules: a QWidget on the user-interface thread. The list and cache notices arrive on
// worker threads and are turned into queued calls; the waiting notices come from this thread
// during a wait and are handled at once.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QElapsedTimer>
#include <QMainWindow>
#include <QTimer>

#include "decode/decode_cache.h"
#include "decode/decode_notices.h"
#include "decode/entry_decoder.h"
#include "decode/head_start_decoder.h"
#include "frame/caption_text.h"
#include "frame/status_text.h"
#include "list/list_notices.h"
#include "list/picture_list.h"
#include "marks/mark_writer.h"

class QLabel;
class QTextToSpeech;

namespace orvanta::display {
class PictureView;
}

namespace orvanta::frame {

// Command identifiers of the frame's navigation.
struct Command {
    static constexpr int kPrevious = 1005;
    static constexpr int kNext = 1006;
    static constexpr int kFirst = 1007;
    static constexpr int kLast = 1008;
    static constexpr int kNextTen = 1083;
    static constexpr int kPreviousTen = 1085;
    static constexpr int kNextHidingCursor = 1111;
    static constexpr int kPreviousFile = 1118;
    static constexpr int kNextFile = 1119;
    static constexpr int kActualSize = 1002;
    // Digit keys: 2000 + n marks the current picture (rating, Shift label, Ctrl urgency).
    static constexpr int kMarkFirst = 2000;
    static constexpr int kMarkLast = 2009;
    static constexpr int kSpeakMarks = 1995;
    // lParam of kNext for the first picture shown.
    static constexpr int kFirstPicture = -1;
};

struct ModeFlags {
    bool autoMode = false;
    bool trackMode = false;
    bool cameraMode = false;
    std::uint32_t autoInterval = 0;
};

class MainFrame final : public QMainWindow,
                        public list::ListNotices,
                        public decode::DecodeNotices,
                        public marks::MarkWriterNotices {
    Q_OBJECT

public:
    // `workers` 0: as many as the settings and the processor give. `accelerated`: draw
    // through OpenGL when a context can be made.
    explicit MainFrame(std::uint32_t workers = 0, QWidget* parent = nullptr,
                       bool accelerated = false);
    ~MainFrame() override;

    // Begins decoding the file that will be shown first while the window is still being
    // made; the worker that reaches it takes the picture.
    void DecodeAhead(const std::string& file);
    // The start picture with texts 10051 and 10050.
    void ShowStartPicture();
    // Opens "|"-joined entries: a folder first, or files; false when one was refused.
    bool OpenList(const std::string& joined);
    bool OpenFolder(const std::string& folder, const std::string& fileToShow = {});
    void SetModes(const ModeFlags& modes);
    // Runs a frame command; `param` carries the internal codes of the navigation commands.
    void RunCommand(int command, int param = 0, bool fromAccelerator = false);

    list::PictureList& List() { return *list_; }
    decode::DecodeCache& Cache() { return *cache_; }
    display::PictureView& View() { return *view_; }
    // Acceleration was asked for but no OpenGL context could be made.
    bool AccelerationFailed() const { return accelerationFailed_; }
    // The arguments of the program started again after the accelerated display failed
    // (empty: no restart asked for).
    const std::optional<std::vector<std::string>>& RelaunchRequest() const { return relaunch_; }
    QString StatusLineText() const;
    QString FileLabelText() const;
    // Called with the time from the command to the paint of its picture.
    void SetTrace(bool on) { trace_ = on; }
    // Starts the mark writer over `stores`; until then the digit keys store nothing.
    void AttachMarkStores(marks::MarkStores& stores);
    marks::MarkWriter* MarkWriter() { return markWriter_.get(); }
    // At exit, with marks still to be written: asks whether to wait for them (false: the
    // user chose to stay), then waits with the window hidden.
    bool WaitForPendingFileWork();

    // ListNotices
    void ListGrew464(std::uint32_t count, std::uint32_t delay) override;
    void StatusText46A(int textId) override;
    void NewShot46B(std::uint32_t count, std::string basePath) override;
    void EntryRemoved479(const list::PictureEntry& entry) override;
    void EntryChanged483(const list::PictureEntry& entry) override;
    void Beep(list::BeepKind kind) override;
    // DecodeNotices
    void Waiting467(const list::PictureEntry& entry) override;
    void WaitOver468(bool abortedWithoutPicture, const list::PictureEntry& entry) override;
    void MemoryRanOut46F() override;
    void OutOfMemoryMessage(int textId) override;
    // MarkWriterNotices
    void LeaveFullScreen46F() override;
    void Message(int textId, int titleId, marks::MessageIcon icon,
                 std::vector<i18n::FormatArg> arguments) override;

signals:
    // A navigation command's picture was handed to the view (or the error picture).
    void PictureShown();

protected:
    void closeEvent(QCloseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void BuildShortcuts();
    void ShowCurrent(list::PictureEntry* entry, bool startTimer6);
    void RefreshCaptionAndStatus();
    void ShowPanel();
    void ConnectView();
    // Hands the view the picture a step in the direction of travel will show, once it is
    // decoded, so that the view prepares its first frame while idle; looks again a while
    // after `firstLook` while it is being decoded.
    void PrepareAhead(bool firstLook);
    void DisplayFailed();
    void RunMarkCommand(int command);
    void SpeakMarks();
    // The digit 0..9 a key stands for whatever the layout makes of it with Shift; -1.
    static int DigitOfKey(const QKeyEvent& event);

    decode::PipelineDecoder decoder_;
    decode::HeadStartDecoder headStart_{decoder_};
    std::unique_ptr<decode::DecodeCache> cache_;
    std::unique_ptr<list::PictureList> list_;
    display::PictureView* view_ = nullptr;
    bool accelerationFailed_ = false;
    std::optional<std::vector<std::string>> relaunch_;
    QWidget* panel_ = nullptr;
    QLabel* fileLabel_ = nullptr;
    QLabel* statusLabel_ = nullptr;
    QLabel* modeLabel_ = nullptr;
    QTimer timer2_;         // caption and status refresh
    QTimer timer4_;         // a new shot becomes current
    QTimer timer6_;         // hides the bottom panel
    QTimer timer8_;         // advances after a rating
    QTimer aheadTimer_;     // looks again whether the picture ahead was decoded
    QTimer windowRefresh_;  // queues the decodes the grown list adds to the window
    QElapsedTimer lastWindowRefresh_;
    int aheadLooks_ = 0;
    bool forward_ = true;  // the direction of travel
    std::unique_ptr<marks::MarkWriter> markWriter_;
    QTextToSpeech* speech_ = nullptr;
    CaptionState caption_;
    ModeFlags modes_;
    std::string pendingShot_;
    std::string statusOverride_;
    bool waiting_ = false;
    bool trace_ = false;
    bool closed_ = false;
};

}  // namespace orvanta::frame
