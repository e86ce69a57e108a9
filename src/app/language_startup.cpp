#include "app/language_startup.h"

#include <QMessageBox>
#include <QString>

#include "i18n/current_language.h"
#include "i18n/language_selection.h"
#include "i18n/program_strings.h"

namespace orvanta::app {
namespace {

void Show(QMessageBox::Icon icon, const std::string& text) {
    QMessageBox box(icon, QString::fromUtf8(i18n::ProgramString(100).data()),
                    QString::fromStdString(text));
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.exec();
}

}  // namespace

void MessageBoxLanguageNotices::InvalidLanguageCode103() {
    Show(QMessageBox::Critical, std::string(i18n::ProgramString(103)));
}

void MessageBoxLanguageNotices::NoLanguageModule104() {
    Show(QMessageBox::Critical, std::string(i18n::ProgramString(104)));
}

void MessageBoxLanguageNotices::UntrustedModule(const std::filesystem::path& module, Result trust) {
    Show(QMessageBox::Warning, i18n::UntrustedModuleText(module, trust));
}

void MessageBoxLanguageNotices::UnreadableModule(const std::filesystem::path& module,
                                                 const std::string& reason) {
    Show(QMessageBox::Warning, "A language module that cannot be read was ignored.\n\n" +
                                   module.string() + "\n\n" + reason);
}

bool LoadLanguage(const cmdline::StartupRequest& commandLine,
                  const std::filesystem::path& programFolder, i18n::LanguageNotices& notices) {
    i18n::LanguageRequest request =
        i18n::RequestForProcess(commandLine, i18n::DefaultLanguageFolder(programFolder));
    auto loaded = i18n::SelectLanguage(request, notices);
    if (!loaded) {
        return false;
    }
    i18n::SetCurrentLanguage(
        std::make_shared<const i18n::LanguageModule>(std::move(loaded->module)));
    return true;
}

}  // namespace orvanta::app
