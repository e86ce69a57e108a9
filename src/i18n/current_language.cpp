#include "i18n/current_language.h"

#include "i18n/program_strings.h"

namespace orvanta::i18n {
namespace {

std::shared_ptr<const LanguageModule>& Current() {
    static std::shared_ptr<const LanguageModule> current;
    return current;
}

}  // namespace

void SetCurrentLanguage(std::shared_ptr<const LanguageModule> module) {
    Current() = std::move(module);
}

const LanguageModule* CurrentLanguage() {
    return Current().get();
}

std::string_view Text(int id) {
    if (const LanguageModule* module = Current().get()) {
        if (const std::string* text = module->FindString(id)) {
            return *text;
        }
    }
    return ProgramString(id);
}

}  // namespace orvanta::i18n
