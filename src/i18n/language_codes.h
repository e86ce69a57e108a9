// Language codes: the three-letter abbreviations the program knows (ENU, FRA, CHT, ...),
// the two-letter codes of the modules that ship, the derivation of a two-letter code from
// a three-letter one, and the user's three-letter code read from the POSIX locale
// variables. Pure functions over constant tables; thread-safe.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::i18n {

bool IsKnownThreeLetterCode(std::string_view code);  // upper case expected
bool IsKnownTwoLetterCode(std::string_view code);    // upper case expected

// The two-letter module code for a three-letter code: CHS gives ZH; ZHM, CHT, ZHH and ZHI
// give CH; CSY gives CS; any other code its first two letters when they are a module code.
// nullopt when the code has not three letters or its letters are no module code.
std::optional<std::string> TwoLetterCode(std::string_view threeLetterCode);

// The three-letter code for a POSIX locale name such as "fr_CA.UTF-8", "sr_RS@latin" or
// "C": by language and territory first, then by language alone. "C", "POSIX" and an
// empty or unknown name give ENU.
std::string ThreeLetterCodeForLocale(std::string_view locale);

// The locale name that decides the messages' language: LC_ALL, then LC_MESSAGES, then
// LANG, the first that is set and not empty. `getenv` stands in for the environment.
std::string MessagesLocale(const std::function<const char*(const char*)>& getenv);

}  // namespace orvanta::i18n
