#include "frame/display_failure.h"

#include <QMessageBox>

#include "i18n/current_language.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"

namespace orvanta::frame {

namespace {

QString Text(int id) {
    const std::string_view text = i18n::Text(id);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::function<void(const QString&)>& MessageHook() {
    static std::function<void(const QString&)> hook;
    return hook;
}

}  // namespace

std::vector<std::string> RelaunchArguments(const std::string& pictureFolder,
                                           const std::string& keepFolder) {
    std::vector<std::string> arguments;
    if (!pictureFolder.empty()) {
        arguments.insert(arguments.end(), {"-i", pictureFolder});
    }
    if (!keepFolder.empty()) {
        arguments.insert(arguments.end(), {"-c", keepFolder});
    }
    return arguments;
}

void SetDisplayFailureMessage(std::function<void(const QString&)> show) {
    MessageHook() = std::move(show);
}

void ShowDisplayFailure(QWidget* parent) {
    const QString text = Text(10077);
    if (MessageHook()) {
        MessageHook()(text);
        return;
    }
    QMessageBox::critical(parent, Text(100), text);
}

void DisableAcceleration() {
    settings::DisableHWA.Set(1);
    platform::RegKey key;
    if (platform::RegKey::Create(platform::RegistryStore::User(), settings::kSettingsKey, key) ==
        0) {
        settings::WriteDword(key, "DisableHWA", 1);
    }
}

}  // namespace orvanta::frame
