// orvanta-cli formats: the decoders present and the supported-pattern list they make.
#include <cstdio>

#include "cli/command.h"
#include "list/supported_formats.h"
#include "platform/imaging/component_list.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage = "formats [--json]";

int Run(std::span<const std::string> args) {
    bool json = false;
    for (const auto& arg : args) {
        if (arg == "--json") {
            json = true;
        } else {
            return UsageError("usage: orvanta-cli " + std::string(kUsage));
        }
    }
    const auto decoders = imaging::ComponentList::Instance().Decoders();
    const std::string patterns = list::BuildSupportedPatterns(decoders);
    if (json) {
        std::string out = "{\"decoders\":[";
        for (std::size_t i = 0; i < decoders.size(); ++i) {
            const auto& d = decoders[i];
            out += std::string(i ? "," : "") +
                   "{\"container\":" + JsonString(d.container.ToString()) +
                   ",\"vendor\":" + JsonString(d.vendor.ToString()) +
                   ",\"name\":" + JsonString(d.name) +
                   ",\"extensions\":" + JsonString(d.extensions) + "}";
        }
        out += "],\"supportedPatterns\":" + JsonString(patterns) + "}\n";
        std::fputs(out.c_str(), stdout);
        return 0;
    }
    for (const auto& d : decoders) {
        std::printf("%-22s %s %s  %s\n", d.name.c_str(), d.container.ToString().c_str(),
                    d.vendor.ToString().c_str(), d.extensions.c_str());
    }
    std::printf("\nsupported patterns: %s\n", patterns.c_str());
    return 0;
}

const CommandRegistrar registrar({"formats", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli
