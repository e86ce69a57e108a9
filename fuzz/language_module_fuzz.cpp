// Reads arbitrary bytes as a language module and, when they parse, formats every string
// with a mix of texts and numbers, as the program does with the texts of a module it did
// not write.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "i18n/format_text.h"
#include "i18n/language_module.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    orvanta::i18n::ParseError error;
    auto module = orvanta::i18n::LanguageModule::Parse(text, error);
    if (!module) {
        (void)error.ToString();
        return 0;
    }
    for (const auto& [id, format] : module->Strings()) {
        auto out = orvanta::i18n::FormatText(format, {"/some/path.jpg", id, -1, 0x80070020u});
        // Every conversion is bounded: a text grows by at most the width cap per character.
        if (out.size() > format.size() * 513 + 64) {
            __builtin_trap();
        }
        (void)module->FindMenu(id);
        (void)module->FindAccelerators(id);
    }
    return 0;
}
