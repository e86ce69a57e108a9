// The digit key never waits for the disk: SetMark's time to return while the mark writer
// is busy with a store that takes 200 ms per write, against one frame (16 ms); then the
// time per mark of the real sidecar store, and how soon an idle writer stops.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "bench_timing.h"
#include "list/picture_list.h"
#include "marks/mark_stores.h"
#include "marks/mark_writer.h"
#include "marks/set_mark.h"
#include "settings/settings.h"

namespace {

using namespace orvanta;

class CountedMessages final : public marks::MarkWriterNotices {
public:
    void LeaveFullScreen46F() override {}
    void Message(int textId, int, marks::MessageIcon, std::vector<i18n::FormatArg>) override {
        std::fprintf(stderr, "message %d\n", textId);
    }
};

// A store on a disk that takes 200 ms for every write.
class SlowStores final : public marks::MarkStores {
public:
    Result CreateSidecar(const std::filesystem::path&, const marks::MarkRequest&,
                         const marks::MarkTime&) override {
        return Slow();
    }
    Result UpdateSidecar(const std::filesystem::path&, const marks::MarkRequest&,
                         const marks::MarkTime&) override {
        return Slow();
    }
    Result WriteEmbeddedMark(const std::filesystem::path&, const marks::MarkRequest&,
                             const marks::MarkTime&) override {
        return Slow();
    }

private:
    static Result Slow() {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        return S_OK;
    }
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main() {
    constexpr double kFrameMs = 16.0;
    constexpr int kPictures = 40;
    const auto folder = std::filesystem::temp_directory_path() /
                        ("orvanta-mark-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    for (int i = 0; i < kPictures; ++i) {
        std::ofstream(folder / ("IMG_" + std::to_string(1000 + i) + ".jpg")) << "x";
    }
    settings::EnableRating.Set(1);
    settings::EmbedMetadata.Set(1);
    list::QuietListNotices listNotices;
    list::PictureList pictures(list::ListServices{&listNotices, nullptr, nullptr, nullptr});
    pictures.OpenFolder(folder, {}, "*.jpg");
    pictures.WaitUntilScanned(std::chrono::seconds(20));

    SlowStores slow;
    CountedMessages messages;
    marks::MarkWriter writer(slow, messages, &pictures);
    writer.Start();
    // Every press lands on a new picture while the writer still sleeps on the first ones.
    std::vector<double> presses;
    for (int i = 0; i < kPictures; ++i) {
        const std::uint32_t stars = static_cast<std::uint32_t>(1 + i % 5);
        presses.push_back(bench::Milliseconds(
            [&] { (void)marks::SetMark(pictures, &writer, stars, {}, marks::FileTimeNow()); }));
        pictures.Next();
    }
    const double press = Median(presses);
    const double worst = *std::max_element(presses.begin(), presses.end());
    std::printf(
        "digit key with a 200 ms store: median %.1f us, worst %.1f us; ratio to one "
        "frame (16 ms) %.5f (worst %.5f)\n",
        press * 1000, worst * 1000, press / kFrameMs, worst / kFrameMs);
    writer.Stop();  // drops what is still queued

    // The real sidecar store, one mark per picture, through the writer's own serving.
    marks::MarkWriter files(marks::FileMarkStores(), messages, nullptr);
    std::vector<double> creates;
    std::vector<double> updates;
    for (int pass = 0; pass < 2; ++pass) {
        for (int i = 0; i < kPictures; ++i) {
            marks::MarkRequest request;
            request.value = static_cast<std::uint32_t>(1 + (i + pass) % 5);
            const std::string base = (folder / ("IMG_" + std::to_string(1000 + i))).string();
            const double ms = bench::Milliseconds([&] {
                (void)files.Serve(request, {base, "jpg"}, {true, false, false});
            });
            (pass == 0 ? creates : updates).push_back(ms);
        }
    }
    std::printf(
        "sidecar per mark: create %.3f ms, update %.3f ms (the digit key waits for "
        "neither: ratio of the key's time to a create %.5f)\n",
        Median(creates), Median(updates), press / Median(creates));

    marks::MarkWriter idle(slow, messages, nullptr);
    idle.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const double stop = bench::Milliseconds([&] { idle.Stop(); });
    std::printf("idle writer stops in %.3f ms; ratio to its 100 ms wait %.4f\n", stop,
                stop / 100.0);
    std::filesystem::remove_all(folder);
    return 0;
}
