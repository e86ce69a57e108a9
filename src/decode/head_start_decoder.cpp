#include "decode/head_start_decoder.h"

#include <condition_variable>

#include "list/supported_formats.h"
#include "metadata/picture_metadata.h"
#include "platform/text/unicode.h"

namespace orvanta::decode {

namespace {

// How often a worker waiting for a head start looks at its entry's abort flag.
constexpr std::chrono::milliseconds kAbortPoll{10};

// The options that change the pixels or what the decode reports.
bool SameOptions(const DecodeOptions& a, const DecodeOptions& b) {
    return a.outputFormat == b.outputFormat && a.accelerated == b.accelerated &&
           a.enableIcc == b.enableIcc && a.raw == b.raw && a.autoRotate == b.autoRotate &&
           a.downscale == b.downscale && a.colour.targetProfile == b.colour.targetProfile &&
           a.colour.monitor == b.colour.monitor && a.colour.warnings == b.colour.warnings &&
           a.warnOnInvalidProfile == b.warnOnInvalidProfile &&
           a.composeOverBackground == b.composeOverBackground && a.background == b.background;
}

bool SameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
    if (a == b) {
        return true;
    }
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error;
}

}  // namespace

struct HeadStartDecoder::Run {
    std::filesystem::path path;
    DecodeOptions options;
    std::atomic<std::uint32_t> abortFlag{0};
    std::mutex mutex;  // guards the group below
    std::condition_variable finished;
    bool done = false;
    Result result = E_FAIL;
    DecodedPicture picture;
    metadata::PictureMetadata record;
};

HeadStartDecoder::HeadStartDecoder(PipelineDecoder& inner, PictureDecodeFunction decodeFile)
    : inner_(inner), decodeFile_(std::move(decodeFile)) {
    if (!decodeFile_) {
        decodeFile_ = [](const std::filesystem::path& path, std::uint16_t frameIndex,
                         const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
                         DecodedPicture& picture, metadata::PictureMetadata& record) {
            return DecodePicture(path, frameIndex, options, abortFlag, picture, record);
        };
    }
}

HeadStartDecoder::~HeadStartDecoder() {
    std::scoped_lock lock(mutex_);
    if (run_) {
        run_->abortFlag.store(1);
    }
}

void HeadStartDecoder::Begin(const std::filesystem::path& file) {
    auto run = std::make_shared<Run>();
    run->path = file;
    // The raw flag as the workers choose it for an entry of this one file.
    std::string extension = text::LowerAscii(file.extension().string());
    if (!extension.empty()) {
        extension.erase(0, 1);
    }
    run->options = inner_.Options(list::ChooseSibling(extension).raw);
    {
        std::scoped_lock lock(mutex_);
        if (run_) {
            run_->abortFlag.store(1);
        }
        run_ = run;
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    thread_ = std::jthread([run, decodeFile = decodeFile_] {
        DecodedPicture picture;
        metadata::PictureMetadata record;
        const Result result =
            decodeFile(run->path, 0, run->options, run->abortFlag, picture, record);
        {
            std::scoped_lock lock(run->mutex);
            run->result = result;
            run->picture = std::move(picture);
            run->record = std::move(record);
            run->done = true;
        }
        run->finished.notify_all();
    });
}

bool HeadStartDecoder::Pending() const {
    std::scoped_lock lock(mutex_);
    return run_ != nullptr;
}

std::shared_ptr<HeadStartDecoder::Run> HeadStartDecoder::Take(const std::filesystem::path& path,
                                                              std::uint16_t frameIndex,
                                                              const DecodeOptions& options) {
    std::shared_ptr<Run> run;
    {
        std::scoped_lock lock(mutex_);
        run = std::move(run_);
        run_.reset();
    }
    if (!run) {
        return nullptr;
    }
    if (frameIndex == 0 && SameOptions(run->options, options) && SameFile(run->path, path)) {
        return run;
    }
    // Nobody will want it now: the decode stops at its next check and frees what it made.
    run->abortFlag.store(1);
    return nullptr;
}

Result HeadStartDecoder::Decode(list::PictureEntry& entry, std::string_view decodeKind, bool raw) {
    return DecodeEntry(
        entry, decodeKind, inner_.Options(raw),
        [this](const std::filesystem::path& path, std::uint16_t frameIndex,
               const DecodeOptions& options, const std::atomic<std::uint32_t>& abortFlag,
               DecodedPicture& picture, metadata::PictureMetadata& record) -> Result {
            const std::shared_ptr<Run> run = Take(path, frameIndex, options);
            if (!run) {
                return decodeFile_(path, frameIndex, options, abortFlag, picture, record);
            }
            std::unique_lock lock(run->mutex);
            while (!run->finished.wait_for(lock, kAbortPoll, [&] { return run->done; })) {
                if (abortFlag.load() != 0) {
                    run->abortFlag.store(1);
                    return E_ABORT;
                }
            }
            picture = std::move(run->picture);
            record = std::move(run->record);
            return run->result;
        });
}

}  // namespace orvanta::decode
