// The English language module that ships with the program, read from the source tree once
// per test program, for tests that check texts and keys as users see them.
#pragma once

#include <filesystem>

#include "i18n/language_module.h"

namespace orvanta::test {

std::filesystem::path EnglishModulePath();
// Fails the current test (and returns an empty module) when the module does not parse.
const i18n::LanguageModule& EnglishModule();

}  // namespace orvanta::test
