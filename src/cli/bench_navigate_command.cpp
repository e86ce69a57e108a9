// orvanta-cli bench navigate: the viewer's navigation without a window. Opens a folder with
// the real picture list, cache and decode pipeline, waits for the first picture, then moves
// to the next picture every interval and waits for it as the window would. Prints the time
// to the first picture, the wait per step, decodes, dropped pictures, peak resident memory
// and the decode window over time, each goal with its ratio to a limit measured in the same
// run: one full decode of the first picture alone, timed before the list opens.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/command.h"
#include "decode/decode_cache.h"
#include "decode/wait_for_picture.h"
#include "list/picture_list.h"
#include "metadata/picture_metadata.h"
#include "settings/settings.h"

namespace orvanta::cli {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kUsage =
    "bench navigate FOLDER [--interval MS] [--steps N] [--guide N] [--workers N] [--json]";

// Goals: time to the first picture at most 1.3 decodes; with a pause between steps, the
// 99th-percentile wait after the first five steps at most 5 ms; stepping at once, at least
// 1.6 times the pictures per second of one decode after another.
constexpr double kFirstPictureLimit = 1.3;
constexpr double kWaitLimitMs = 5.0;
constexpr std::size_t kWarmSteps = 5;
constexpr double kRateLimit = 1.6;

struct Options {
    std::string folder;
    std::uint32_t intervalMs = 400;
    std::uint32_t steps = 39;
    std::uint32_t workers = 0;
    bool json = false;
};

class CountingDecodeNotices final : public decode::DecodeNotices {
public:
    void Waiting467(const list::PictureEntry&) override {}
    void WaitOver468(bool, const list::PictureEntry&) override {}
    void MemoryRanOut46F() override { ++memoryRanOut; }
    void OutOfMemoryMessage(int) override {}
    std::atomic<int> memoryRanOut{0};
};

bool ParseNumber(const std::string& text, std::uint32_t& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

double Ms(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// The value below which `share` of the sorted values lie (nearest rank).
double Percentile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto rank = static_cast<std::size_t>(share * static_cast<double>(values.size()) + 0.999);
    return values[std::clamp<std::size_t>(rank, 1, values.size()) - 1];
}

// VmHWM of /proc/self/status: the peak resident set, in bytes.
std::uint64_t PeakResident() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::strtoull(line.c_str() + 6, nullptr, 10) * 1024;
        }
    }
    return 0;
}

// One full decode of `path`, alone, through the workers' pipeline; the median of three, so
// that the pixel pool and the file cache are warm as they are in the viewer.
double SingleDecodeMs(const std::filesystem::path& path, std::uint64_t& pictureBytes) {
    const decode::DecodeOptions options =
        decode::DecodeOptions::FromSettings(imaging::PixelFormat::Pbgra32, false, nullptr);
    std::vector<double> times;
    for (int i = 0; i < 3; ++i) {
        const std::atomic<std::uint32_t> abortFlag{0};
        decode::DecodedPicture picture;
        metadata::PictureMetadata record;
        const auto start = Clock::now();
        if (decode::DecodePicture(path, 0, options, abortFlag, picture, record).Failed()) {
            return 0;
        }
        times.push_back(Ms(Clock::now() - start));
        pictureBytes = picture.pixels.Bytes().size();
    }
    return Percentile(times, 0.5);
}

struct WindowSample {
    double atMs;
    std::int64_t ahead;
    std::int64_t behind;
};

int Run(std::span<const std::string> args) {
    const std::string usage = "usage: orvanta-cli " + std::string(kUsage);
    if (args.empty() || args[0] != "navigate") {
        return UsageError(usage);
    }
    Options options;
    for (std::size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        std::uint32_t number = 0;
        if (arg == "--json") {
            options.json = true;
        } else if (hasValue && ParseNumber(args[i + 1], number) &&
                   (arg == "--interval" || arg == "--steps" || arg == "--guide" ||
                    arg == "--workers")) {
            if (arg == "--interval") {
                options.intervalMs = number;
            } else if (arg == "--steps") {
                options.steps = number;
            } else if (arg == "--guide") {
                settings::MemoryUsageGuideNumber.Set(std::min<std::uint32_t>(number, 96));
            } else if (number >= 1 && number <= 8) {
                options.workers = number;
            } else {
                return UsageError(usage);
            }
            ++i;
        } else if (!arg.starts_with("--") && options.folder.empty()) {
            options.folder = arg;
        } else {
            return UsageError(usage);
        }
    }
    if (options.folder.empty()) {
        return UsageError(usage);
    }

    // The first picture in name order is the one timed alone.
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& item : std::filesystem::directory_iterator(options.folder, error)) {
        if (item.is_regular_file()) {
            files.push_back(item.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::uint64_t pictureBytes = 0;
    const double decodeMs = files.empty() ? 0 : SingleDecodeMs(files.front(), pictureBytes);
    if (decodeMs <= 0) {
        return Failure("no picture to decode in " + options.folder);
    }

    list::QuietListNotices listNotices;
    CountingDecodeNotices decodeNotices;
    decode::PipelineDecoder decoder(imaging::PixelFormat::Pbgra32, false);
    decode::CacheServices services;
    services.decoder = &decoder;
    services.notices = &decodeNotices;
    services.workers = options.workers;
    decode::DecodeCache cache(services);
    list::PictureList pictures(list::ListServices{&listNotices, &cache, nullptr, nullptr});
    cache.Attach(&pictures);
    // The workers and pictures go before the list's entries do, on every way out.
    struct ShutDownFirst {
        decode::DecodeCache& cache;
        ~ShutDownFirst() { cache.ShutDown(); }
    } shutDownFirst{cache};
    cache.ResetWindow(false);

    const auto start = Clock::now();
    std::vector<WindowSample> windows;
    const auto sample = [&] {
        const decode::WindowState w = cache.Window();
        if (windows.empty() || windows.back().ahead != w.ahead ||
            windows.back().behind != w.behind) {
            windows.push_back({Ms(Clock::now() - start), w.ahead, w.behind});
        }
    };
    sample();
    cache.Start();
    decode::WaitRequest wait;
    wait.abortable = false;
    wait.notify = false;
    if (!pictures.OpenFolder(options.folder)) {
        return Failure("the folder cannot be read: " + options.folder);
    }
    list::PictureEntry* first = nullptr;
    while ((first = pictures.Current()) == nullptr &&
           Clock::now() - start < std::chrono::minutes(1)) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    if (first == nullptr || decode::WaitForPicture(*first, wait, &decodeNotices).Failed()) {
        return Failure("the first picture did not come");
    }
    const double firstMs = Ms(Clock::now() - start);
    pictures.WaitUntilScanned(std::chrono::minutes(1));
    sample();

    // The walk goes on from the picture shown first, as the user would (the list wraps
    // round at its end); steps = the picture shown first, then each move.
    std::vector<double> waits;
    std::vector<Clock::time_point> shown;  // when each step's picture was there
    // The workers after the first start 3 s apart; steps from then on show the pool's
    // steady rate.
    const auto poolStarted = start + std::chrono::milliseconds(3000) *
                                         (cache.WorkerCount() > 0 ? cache.WorkerCount() - 1 : 0);
    list::PictureEntry* entry = pictures.Current();
    const auto walkStart = Clock::now();
    for (std::uint32_t step = 0; entry != nullptr && step <= options.steps; ++step) {
        if (step != 0) {
            if (options.intervalMs != 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(options.intervalMs));
            }
            entry = pictures.Next(1, true);
            if (entry == nullptr) {
                break;
            }
        }
        const auto before = Clock::now();
        (void)decode::WaitForPicture(*entry, wait, &decodeNotices);
        waits.push_back(Ms(Clock::now() - before));
        shown.push_back(Clock::now());
        sample();
    }
    const double walkSeconds = std::chrono::duration<double>(Clock::now() - walkStart).count();
    const decode::CacheStats stats = cache.Stats();
    const std::uint64_t peak = PeakResident();
    std::int64_t widest = 0;
    for (const WindowSample& w : windows) {
        widest = std::max(widest, w.ahead + w.behind + 1);
    }
    const double windowBytes = static_cast<double>(widest) * static_cast<double>(pictureBytes);
    cache.ShutDown();

    const std::vector<double> later(
        waits.begin() + static_cast<std::ptrdiff_t>(std::min(waits.size(), kWarmSteps + 1)),
        waits.end());
    const double p99 = Percentile(later, 0.99);
    const double rate = walkSeconds > 0 ? static_cast<double>(waits.size() - 1) / walkSeconds : 0;
    const double singleRate = 1000.0 / decodeMs;
    // Pictures per second over the steps that began once every worker was running.
    double poolRate = 0;
    const auto from = std::find_if(shown.begin(), shown.end(),
                                   [&](Clock::time_point t) { return t >= poolStarted; });
    if (from != shown.end() && shown.end() - from >= 2) {
        const double seconds = std::chrono::duration<double>(shown.back() - *from).count();
        poolRate = seconds > 0 ? static_cast<double>(shown.end() - from - 1) / seconds : 0;
    }
    const double firstRatio = firstMs / (kFirstPictureLimit * decodeMs);
    const double waitRatio = p99 / kWaitLimitMs;
    const double rateRatio = rate / (kRateLimit * singleRate);

    if (options.json) {
        std::string out = "{\"workers\":" + std::to_string(cache.WorkerCount()) +
                          ",\"intervalMs\":" + std::to_string(options.intervalMs) +
                          ",\"steps\":" + std::to_string(waits.size() - 1) +
                          ",\"singleDecodeMs\":" + std::to_string(decodeMs) +
                          ",\"firstPictureMs\":" + std::to_string(firstMs) +
                          ",\"firstPictureRatio\":" + std::to_string(firstRatio) +
                          ",\"waitMedianMs\":" + std::to_string(Percentile(waits, 0.5)) +
                          ",\"waitP95Ms\":" + std::to_string(Percentile(waits, 0.95)) +
                          ",\"waitP99Ms\":" + std::to_string(Percentile(waits, 0.99)) +
                          ",\"waitMaxMs\":" + std::to_string(Percentile(waits, 1.0)) +
                          ",\"waitP99AfterWarmMs\":" + std::to_string(p99) +
                          ",\"waitRatio\":" + std::to_string(waitRatio) +
                          ",\"picturesPerSecond\":" + std::to_string(rate) +
                          ",\"singleDecodesPerSecond\":" + std::to_string(singleRate) +
                          ",\"picturesPerSecondAllWorkers\":" + std::to_string(poolRate) +
                          ",\"rateRatio\":" + std::to_string(rateRatio) +
                          ",\"decodes\":" + std::to_string(stats.decodes) +
                          ",\"failures\":" + std::to_string(stats.failures) +
                          ",\"dropped\":" + std::to_string(stats.dropped) +
                          ",\"peakResidentBytes\":" + std::to_string(peak) +
                          ",\"windowBytes\":" + std::to_string(windowBytes) +
                          ",\"memoryRanOut\":" + std::to_string(decodeNotices.memoryRanOut) +
                          ",\"window\":[";
        for (std::size_t i = 0; i < windows.size(); ++i) {
            out += (i ? "," : "") + std::string("{\"ms\":") + std::to_string(windows[i].atMs) +
                   ",\"ahead\":" + std::to_string(windows[i].ahead) +
                   ",\"behind\":" + std::to_string(windows[i].behind) + "}";
        }
        out += "]}\n";
        std::fputs(out.c_str(), stdout);
        return 0;
    }
    std::printf("workers %u, interval %u ms, %zu steps; one decode alone %.1f ms (%.2f/s)\n",
                cache.WorkerCount(), options.intervalMs, waits.size() - 1, decodeMs, singleRate);
    std::printf("first picture      %8.1f ms   limit %.1f ms (1.3 decodes)   ratio %.2f\n", firstMs,
                kFirstPictureLimit * decodeMs, firstRatio);
    std::printf("wait per step      median %.2f  p95 %.2f  p99 %.2f  max %.2f ms\n",
                Percentile(waits, 0.5), Percentile(waits, 0.95), Percentile(waits, 0.99),
                Percentile(waits, 1.0));
    if (options.intervalMs != 0) {
        std::printf("p99 after step %zu %8.2f ms   limit %.1f ms                 ratio %.2f\n",
                    kWarmSteps, p99, kWaitLimitMs, waitRatio);
    } else {
        std::printf("pictures/s         %8.2f      limit %.2f (1.6 x %.2f)       ratio %.2f\n",
                    rate, kRateLimit * singleRate, singleRate, rateRatio);
        std::printf("  once all workers run %.2f/s   ratio %.2f\n", poolRate,
                    poolRate / (kRateLimit * singleRate));
    }
    std::printf("decodes %llu, failures %llu, pictures dropped %llu, memory ran out %d\n",
                static_cast<unsigned long long>(stats.decodes),
                static_cast<unsigned long long>(stats.failures),
                static_cast<unsigned long long>(stats.dropped), decodeNotices.memoryRanOut.load());
    std::printf(
        "peak resident      %8.1f MiB  window (%lld) x picture %.1f MiB = %.1f MiB  ratio %.2f\n",
        static_cast<double>(peak) / 1048576.0, static_cast<long long>(widest),
        static_cast<double>(pictureBytes) / 1048576.0, windowBytes / 1048576.0,
        windowBytes > 0 ? static_cast<double>(peak) / windowBytes : 0.0);
    std::printf("window over time (ms: ahead/behind):");
    for (const WindowSample& w : windows) {
        std::printf(" %.0f:%lld/%lld", w.atMs, static_cast<long long>(w.ahead),
                    static_cast<long long>(w.behind));
    }
    std::printf("\n");
    return 0;
}

const CommandRegistrar kRegistrar{{"bench", kUsage, Run}};

}  // namespace

}  // namespace orvanta::cli
