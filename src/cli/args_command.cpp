// orvanta-cli args: how the program understands a command line.
#include <cstdio>

#include "cli/command.h"
#include "cmdline/command_line.h"
#include "cmdline/startup_request.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage = "args [--json] [--text \"COMMAND LINE\"] [ARG...]";

std::string Json(const cmdline::SwitchUse& use) {
    return std::string("{\"present\":") + (use.present ? "true" : "false") +
           ",\"value\":" + (use.value ? JsonString(*use.value) : "null") + "}";
}

int Run(std::span<const std::string> args) {
    bool json = false;
    std::optional<std::string> text;
    std::vector<std::string> arguments{"orvanta"};
    std::size_t i = 0;
    // Options of the tool itself come first; everything after them (or after "--") is the
    // command line being examined.
    for (; i < args.size(); ++i) {
        if (args[i] == "--json") {
            json = true;
        } else if (args[i] == "--text") {
            if (i + 1 >= args.size()) {
                return UsageError("--text needs a command line");
            }
            text = args[++i];
        } else if (args[i] == "--") {
            ++i;
            break;
        } else {
            break;
        }
    }
    arguments.insert(arguments.end(), args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
    if (text && arguments.size() > 1) {
        return UsageError("give either --text or arguments, not both");
    }
    cmdline::TokenSet tokens =
        text ? cmdline::TokenSet::Split(*text, cmdline::kPrefixes, true)
             : cmdline::TokenSet::FromArguments(arguments, cmdline::kPrefixes);
    const cmdline::StartupRequest request = cmdline::ReadStartupRequest(tokens);
    const std::pair<const char*, const cmdline::SwitchUse*> switches[] = {
        {"imageFolder", &request.imageFolder},
        {"copyFolder", &request.copyFolder},
        {"monitor", &request.monitor},
        {"kiosk", &request.kiosk},
        {"trackMode", &request.trackMode},
        {"ptpMode", &request.ptpMode},
        {"autoMode", &request.autoMode},
        {"colorProfile", &request.colorProfile},
        {"lang", &request.lang},
        {"oem", &request.oem},
    };
    if (json) {
        std::string out = "{\"tokens\":[";
        for (std::size_t t = 0; t < tokens.Count(); ++t) {
            out += (t ? "," : "") + JsonString(tokens.Token(t));
        }
        out += "],\"switches\":{";
        bool first = true;
        for (const auto& [name, use] : switches) {
            out += (first ? "\"" : ",\"") + std::string(name) + "\":" + Json(*use);
            first = false;
        }
        out += "},\"plain\":" + JsonString(request.plain) + "}\n";
        std::fputs(out.c_str(), stdout);
        return 0;
    }
    for (std::size_t t = 0; t < tokens.Count(); ++t) {
        std::printf("token %zu: %s%s\n", t, tokens.Token(t).c_str(),
                    tokens.Consumed(t) ? " (consumed)" : "");
    }
    for (const auto& [name, use] : switches) {
        if (use->present) {
            std::printf("%s: %s\n", name, use->value ? use->value->c_str() : "(no value)");
        }
    }
    std::printf("plain: %s\n", request.plain.c_str());
    return 0;
}

const CommandRegistrar registrar({"args", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli
