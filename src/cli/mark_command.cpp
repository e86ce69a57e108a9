// orvanta-cli mark: stores one mark in the given pictures through the same writer the
// digit keys use, with the stores chosen by flags as the settings would choose them, and
// prints what each store did. The writer's messages go to stderr as their text ids with
// their arguments.
#include <charconv>
#include <cstdio>

#include "cli/command.h"
#include "list/supported_formats.h"
#include "marks/mark_stores.h"
#include "marks/mark_writer.h"

namespace orvanta::cli {

namespace {

constexpr std::string_view kUsage =
    "mark FILE... (--rating N | --label N | --urgency N) [--convention 0-2] [--sidecar] "
    "[--embed] [--prefix]";

class PrintedNotices final : public marks::MarkWriterNotices {
public:
    void LeaveFullScreen46F() override {}
    void Message(int textId, int titleId, marks::MessageIcon,
                 std::vector<i18n::FormatArg> arguments) override {
        std::string line =
            "message " + std::to_string(textId) + " (" + std::to_string(titleId) + ")";
        for (const auto& argument : arguments) {
            const auto& value = argument.Value();
            line += " ";
            line += std::holds_alternative<std::string>(value)
                        ? std::get<std::string>(value)
                        : std::to_string(std::get<std::int64_t>(value));
        }
        std::fprintf(stderr, "%s\n", line.c_str());
        ++messages;
    }
    int messages = 0;
};

bool ReadNumber(std::string_view text, std::uint32_t limit, std::uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value <= limit;
}

const char* StoreName(marks::StoreOutcome::Store store) {
    switch (store) {
        case marks::StoreOutcome::Store::Prefix:
            return "prefix";
        case marks::StoreOutcome::Store::Sidecar:
            return "sidecar";
        case marks::StoreOutcome::Store::Embedded:
            return "embedded";
    }
    return "";
}

int Run(std::span<const std::string> args) {
    marks::MarkRequest request;
    marks::StoreChoice choice;
    std::vector<std::string> files;
    int kinds = 0;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool valued =
            arg == "--rating" || arg == "--label" || arg == "--urgency" || arg == "--convention";
        if (valued) {
            if (i + 1 >= args.size()) {
                return UsageError(arg + " needs a value");
            }
            const std::string& text = args[++i];
            std::uint32_t value = 0;
            const std::uint32_t limit = arg == "--rating" ? 5 : arg == "--convention" ? 2 : 9;
            if (!ReadNumber(text, limit, value)) {
                return UsageError("bad value for " + arg + ": " + text);
            }
            if (arg == "--convention") {
                request.convention = value;
                continue;
            }
            ++kinds;
            request.value = value;
            request.isLabel = arg == "--label";
            request.isUrgency = arg == "--urgency";
        } else if (arg == "--sidecar") {
            choice.sidecar = true;
        } else if (arg == "--embed") {
            choice.embedded = true;
        } else if (arg == "--prefix") {
            choice.prefix = true;
        } else if (arg.starts_with("--")) {
            return UsageError("unknown option " + arg);
        } else {
            files.push_back(arg);
        }
    }
    if (kinds != 1) {
        return UsageError("give exactly one of --rating, --label and --urgency");
    }
    if (request.isLabel && request.convention == 0 && request.value > 5) {
        return UsageError("the five-colour convention has labels 1 to 5 only");
    }
    if (files.empty()) {
        return UsageError("no file given");
    }
    PrintedNotices notices;
    marks::MarkWriter writer(marks::FileMarkStores(), notices, nullptr);
    int failures = 0;
    for (const std::string& file : files) {
        const std::string_view base = list::BasePathOf(file);
        marks::MarkTarget target{std::string(base), file.size() > base.size() + 1
                                                        ? file.substr(base.size() + 1)
                                                        : std::string()};
        const auto outcomes = writer.Serve(request, target, choice);
        bool stored = false;
        for (const auto& outcome : outcomes) {
            std::printf("%s %s %s\n", StoreName(outcome.store), outcome.path.c_str(),
                        outcome.result.Succeeded() ? "ok" : outcome.result.Hex().c_str());
            stored = stored || outcome.result.Succeeded();
        }
        failures += stored ? 0 : 1;
    }
    return failures == 0 ? 0 : 1;
}

const CommandRegistrar registrar({"mark", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli
