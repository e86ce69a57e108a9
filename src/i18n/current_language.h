// The process-wide language module: set once at start-up, before any other thread runs,
// and read-only afterwards, so every thread may look texts up without a lock.
#pragma once

#include <memory>
#include <string_view>

#include "i18n/language_module.h"

namespace orvanta::i18n {

void SetCurrentLanguage(std::shared_ptr<const LanguageModule> module);
// nullptr before a module was loaded.
const LanguageModule* CurrentLanguage();

// The text with this id: from the module; for 100 to 104 the program's own text when the
// module lacks it; otherwise an empty text.
std::string_view Text(int id);

}  // namespace orvanta::i18n
