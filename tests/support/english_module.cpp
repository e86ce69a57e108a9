#include "support/english_module.h"

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace orvanta::test {

std::filesystem::path EnglishModulePath() {
    return std::filesystem::path(ORVANTA_SOURCE_DIR) / "lang" / "orvanta.ENU.lang";
}

const i18n::LanguageModule& EnglishModule() {
    static const i18n::LanguageModule module = [] {
        std::ifstream in(EnglishModulePath(), std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        i18n::ParseError error;
        auto parsed = i18n::LanguageModule::Parse(text.str(), error);
        EXPECT_TRUE(parsed) << EnglishModulePath() << ": " << error.ToString();
        return parsed ? std::move(*parsed) : i18n::LanguageModule();
    }();
    return module;
}

}  // namespace orvanta::test
