#include "i18n/language_codes.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace orvanta::i18n {
namespace {

constexpr std::array<std::string_view, 140> kThreeLetterCodes = {
    "AFK", "ARA", "ARB", "ARE", "ARG", "ARH", "ARI", "ARJ", "ARK", "ARL", "ARM", "ARO", "ARQ",
    "ARS", "ART", "ARU", "ARY", "AZE", "BEL", "BGR", "CAT", "CHS", "CHT", "CSY", "DAN", "DEA",
    "DEC", "DEL", "DES", "DEU", "DIV", "ELL", "ENA", "ENB", "ENC", "ENG", "ENI", "ENJ", "ENL",
    "ENP", "ENS", "ENT", "ENU", "ENW", "ENZ", "ESA", "ESB", "ESC", "ESD", "ESE", "ESF", "ESG",
    "ESH", "ESI", "ESL", "ESM", "ESN", "ESO", "ESP", "ESR", "ESS", "ESU", "ESV", "ESY", "ESZ",
    "ETI", "EUQ", "FAR", "FIN", "FOS", "FRA", "FRB", "FRC", "FRL", "FRM", "FRS", "GLC", "GUJ",
    "HEB", "HIN", "HRV", "HUN", "HYE", "IND", "ISL", "ITA", "ITS", "JPN", "KAN", "KAT", "KKZ",
    "KNK", "KOR", "KYR", "LTH", "LVI", "MAR", "MKI", "MON", "MSB", "MSL", "NLB", "NLD", "NON",
    "NOR", "PAN", "PLK", "PTB", "PTG", "ROM", "RUS", "SAN", "SKY", "SLV", "SQI", "SRB", "SRL",
    "SVE", "SVF", "SWK", "SYR", "TAM", "TEL", "THA", "TRK", "TTT", "UKR", "URD", "UZB", "VIT",
    "ZHH", "ZHI", "ZHM"};

constexpr std::array<std::string_view, 20> kTwoLetterCodes = {
    "AR", "CH", "DE", "EN", "ES", "FR", "IT", "MS", "NL", "NO",
    "PT", "SR", "SV", "ZH", "JA", "PL", "PT", "RU", "CS", "KO"};

struct LocaleCode {
    std::string_view locale;  // "fr" or "fr_CA" or "sr_RS@latin"
    std::string_view code;
};

// Language and territory first; each language's own row last, for the territories the
// table does not name.
constexpr LocaleCode kLocaleCodes[] = {
    {"ar_AE", "ARU"},    {"ar_BH", "ARH"}, {"ar_DZ", "ARG"},       {"ar_EG", "ARE"},
    {"ar_IQ", "ARI"},    {"ar_JO", "ARJ"}, {"ar_KW", "ARK"},       {"ar_LB", "ARB"},
    {"ar_LY", "ARL"},    {"ar_MA", "ARM"}, {"ar_OM", "ARO"},       {"ar_QA", "ARQ"},
    {"ar_SY", "ARS"},    {"ar_TN", "ART"}, {"ar_YE", "ARY"},       {"ar", "ARA"},
    {"de_AT", "DEA"},    {"de_CH", "DES"}, {"de_LI", "DEC"},       {"de_LU", "DEL"},
    {"de", "DEU"},       {"en_AU", "ENA"}, {"en_BZ", "ENL"},       {"en_CA", "ENC"},
    {"en_GB", "ENG"},    {"en_IE", "ENI"}, {"en_JM", "ENJ"},       {"en_NZ", "ENZ"},
    {"en_PH", "ENP"},    {"en_TT", "ENT"}, {"en_ZA", "ENS"},       {"en_ZW", "ENW"},
    {"en", "ENU"},       {"es_AR", "ESS"}, {"es_BO", "ESB"},       {"es_CL", "ESL"},
    {"es_CO", "ESO"},    {"es_CR", "ESC"}, {"es_DO", "ESD"},       {"es_EC", "ESF"},
    {"es_GT", "ESG"},    {"es_HN", "ESH"}, {"es_MX", "ESM"},       {"es_NI", "ESI"},
    {"es_PA", "ESA"},    {"es_PE", "ESR"}, {"es_PR", "ESU"},       {"es_PY", "ESZ"},
    {"es_SV", "ESE"},    {"es_UY", "ESY"}, {"es_VE", "ESV"},       {"es", "ESN"},
    {"fr_BE", "FRB"},    {"fr_CA", "FRC"}, {"fr_CH", "FRS"},       {"fr_LU", "FRL"},
    {"fr_MC", "FRM"},    {"fr", "FRA"},    {"it_CH", "ITS"},       {"it", "ITA"},
    {"ms_BN", "MSB"},    {"ms", "MSL"},    {"nl_BE", "NLB"},       {"nl", "NLD"},
    {"pt_PT", "PTG"},    {"pt", "PTB"},    {"sr_RS@latin", "SRL"}, {"sr_ME@latin", "SRL"},
    {"sr@latin", "SRL"}, {"sr", "SRB"},    {"sv_FI", "SVF"},       {"sv", "SVE"},
    {"zh_HK", "ZHH"},    {"zh_MO", "ZHM"}, {"zh_SG", "ZHI"},       {"zh_TW", "CHT"},
    {"zh", "CHS"},       {"af", "AFK"},    {"az", "AZE"},          {"be", "BEL"},
    {"bg", "BGR"},       {"ca", "CAT"},    {"cs", "CSY"},          {"da", "DAN"},
    {"dv", "DIV"},       {"el", "ELL"},    {"et", "ETI"},          {"eu", "EUQ"},
    {"fa", "FAR"},       {"fi", "FIN"},    {"fo", "FOS"},          {"gl", "GLC"},
    {"gu", "GUJ"},       {"he", "HEB"},    {"hi", "HIN"},          {"hr", "HRV"},
    {"hu", "HUN"},       {"hy", "HYE"},    {"id", "IND"},          {"is", "ISL"},
    {"ja", "JPN"},       {"ka", "KAT"},    {"kk", "KKZ"},          {"kn", "KAN"},
    {"kok", "KNK"},      {"ko", "KOR"},    {"ky", "KYR"},          {"lt", "LTH"},
    {"lv", "LVI"},       {"mk", "MKI"},    {"mn", "MON"},          {"mr", "MAR"},
    {"nb", "NOR"},       {"nn", "NON"},    {"no", "NOR"},          {"pa", "PAN"},
    {"pl", "PLK"},       {"ro", "ROM"},    {"ru", "RUS"},          {"sa", "SAN"},
    {"sk", "SKY"},       {"sl", "SLV"},    {"sq", "SQI"},          {"sw", "SWK"},
    {"syr", "SYR"},      {"ta", "TAM"},    {"te", "TEL"},          {"th", "THA"},
    {"tr", "TRK"},       {"tt", "TTT"},    {"uk", "UKR"},          {"ur", "URD"},
    {"uz", "UZB"},       {"vi", "VIT"},
};

constexpr std::string_view kDefaultCode = "ENU";

template <std::size_t N>
bool Contains(const std::array<std::string_view, N>& table, std::string_view code) {
    return std::find(table.begin(), table.end(), code) != table.end();
}

std::string_view Find(std::string_view key) {
    for (const LocaleCode& row : kLocaleCodes) {
        if (row.locale == key) {
            return row.code;
        }
    }
    return {};
}

}  // namespace

bool IsKnownThreeLetterCode(std::string_view code) {
    return Contains(kThreeLetterCodes, code);
}

bool IsKnownTwoLetterCode(std::string_view code) {
    return Contains(kTwoLetterCodes, code);
}

std::optional<std::string> TwoLetterCode(std::string_view code) {
    if (code.size() != 3) {
        return std::nullopt;
    }
    if (code == "CHS") {
        return "ZH";
    }
    if (code == "ZHM" || code == "CHT" || code == "ZHH" || code == "ZHI") {
        return "CH";
    }
    if (code == "CSY") {
        return "CS";
    }
    std::string two(code.substr(0, 2));
    if (!IsKnownTwoLetterCode(two)) {
        return std::nullopt;
    }
    return two;
}

std::string ThreeLetterCodeForLocale(std::string_view locale) {
    // "ll_TT.codeset@modifier": the codeset plays no part, the modifier does (sr@latin).
    std::string_view modifier;
    if (std::size_t at = locale.find('@'); at != std::string_view::npos) {
        modifier = locale.substr(at);
        locale = locale.substr(0, at);
    }
    locale = locale.substr(0, locale.find('.'));
    std::string_view language = locale.substr(0, locale.find('_'));
    if (language.empty() || language == "C" || language == "POSIX") {
        return std::string(kDefaultCode);
    }
    std::string lowerLanguage;
    for (char c : language) {
        lowerLanguage.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    std::string full = lowerLanguage + std::string(locale.substr(language.size()));
    for (std::size_t i = lowerLanguage.size() + 1; i < full.size(); ++i) {
        full[i] = static_cast<char>(std::toupper(static_cast<unsigned char>(full[i])));
    }
    if (!modifier.empty()) {
        if (auto code = Find(full + std::string(modifier)); !code.empty()) {
            return std::string(code);
        }
    }
    if (auto code = Find(full); !code.empty()) {
        return std::string(code);
    }
    if (auto code = Find(lowerLanguage); !code.empty()) {
        return std::string(code);
    }
    return std::string(kDefaultCode);
}

std::string MessagesLocale(const std::function<const char*(const char*)>& getenv) {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = getenv(name);
        if (value && *value) {
            return value;
        }
    }
    return {};
}

}  // namespace orvanta::i18n
