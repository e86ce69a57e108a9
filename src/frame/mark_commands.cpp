// The frame's side of culling: the digit keys and the spoken marks, the mark writer's
// messages, and the wait for pending mark writes at exit.
#include <QApplication>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QThread>

#if ORVANTA_HAVE_SPEECH
#include <QTextToSpeech>
#endif

#include "display/raster_view.h"
#include "frame/main_frame.h"
#include "i18n/current_language.h"
#include "i18n/format_text.h"
#include "marks/mark_summary.h"
#include "marks/set_mark.h"
#include "settings/settings.h"

namespace orvanta::frame {

namespace {

constexpr int kTitleProgram = 100;
constexpr int kTitleWorkInProgress = 10134;
constexpr int kTextWorkInProgress = 10136;

QString Text(int id) {
    const std::string_view text = i18n::Text(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// The writer's texts take at most three arguments.
std::string Formatted(int textId, const std::vector<i18n::FormatArg>& a) {
    const std::string_view format = i18n::Text(textId);
    switch (a.size()) {
        case 0:
            return i18n::FormatText(format, {});
        case 1:
            return i18n::FormatText(format, {a[0]});
        case 2:
            return i18n::FormatText(format, {a[0], a[1]});
        default:
            return i18n::FormatText(format, {a[0], a[1], a[2]});
    }
}

}  // namespace

void MainFrame::AttachMarkStores(marks::MarkStores& stores) {
    if (markWriter_) {
        markWriter_->Stop();
    }
    markWriter_ = std::make_unique<marks::MarkWriter>(stores, *this, list_.get());
    markWriter_->Start();
}

int MainFrame::DigitOfKey(const QKeyEvent& event) {
    if (event.key() >= Qt::Key_0 && event.key() <= Qt::Key_9) {
        return event.key() - Qt::Key_0;
    }
    // The digit row by its place on the keyboard (X keycodes 10..19 are 1..9, 0), for the
    // characters a layout puts on Shift+digit.
    const quint32 code = event.nativeScanCode();
    if (code >= 10 && code <= 19) {
        return static_cast<int>((code - 9) % 10);
    }
    return -1;
}

void MainFrame::RunMarkCommand(int command) {
    if (command == Command::kSpeakMarks) {
        SpeakMarks();
        return;
    }
    // The modifiers as they are now, not as the shortcut saw them.
    const Qt::KeyboardModifiers held = QGuiApplication::queryKeyboardModifiers();
    marks::MarkKeys keys;
    keys.shift = held.testFlag(Qt::ShiftModifier);
    keys.ctrl = held.testFlag(Qt::ControlModifier);
    const marks::MarkOutcome outcome = marks::SetMark(
        *list_, markWriter_.get(), static_cast<std::uint32_t>(command - Command::kMarkFirst), keys,
        marks::FileTimeNow());
    if (outcome.messageId != 0) {
        panel_->hide();
        QMessageBox::information(this, Text(kTitleProgram), Text(outcome.messageId));
        ShowPanel();
        return;
    }
    if (outcome.beep) {
        QApplication::beep();
        return;
    }
    if (outcome.queued) {
        RefreshCaptionAndStatus();
    }
    if (outcome.advance) {
        timer8_.start();
    }
}

void MainFrame::SpeakMarks() {
    list::PictureEntry* entry = list_->Current();
    const std::string text = marks::MarkSummaryText(entry ? &entry->marks : nullptr);
#if ORVANTA_HAVE_SPEECH
    if (speech_ == nullptr) {
        speech_ = new QTextToSpeech(this);
    }
    // A new summary cuts the one still being spoken short.
    speech_->stop();
    speech_->say(QString::fromStdString(text));
#else
    statusLabel_->setText(QString::fromStdString(text));
#endif
}

void MainFrame::LeaveFullScreen46F() {
    MemoryRanOut46F();
}

void MainFrame::Message(int textId, int titleId, marks::MessageIcon icon,
                        std::vector<i18n::FormatArg> arguments) {
    const QString text = QString::fromStdString(Formatted(textId, arguments));
    QMetaObject::invokeMethod(
        this,
        [this, text, titleId, icon] {
            if (icon == marks::MessageIcon::Stop) {
                QMessageBox::critical(this, Text(titleId), text);
            } else {
                QMessageBox::information(this, Text(titleId), text);
            }
            // A mark that no store took is unset again.
            RefreshCaptionAndStatus();
        },
        Qt::QueuedConnection);
}

bool MainFrame::WaitForPendingFileWork() {
    if (!markWriter_ || !markWriter_->HasWork()) {
        return true;
    }
    LeaveFullScreen46F();
    const auto answer =
        QMessageBox::warning(this, Text(kTitleWorkInProgress), Text(kTextWorkInProgress),
                             QMessageBox::Ok | QMessageBox::Cancel, QMessageBox::Ok);
    if (answer != QMessageBox::Ok) {
        return false;
    }
    showMinimized();
    setEnabled(false);
    hide();
    while (markWriter_->HasWork()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

}  // namespace orvanta::frame
