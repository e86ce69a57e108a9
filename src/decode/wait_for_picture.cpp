#include "decode/wait_for_picture.h"

#include <thread>

#include "list/picture_entry.h"
#include "settings/settings.h"

namespace orvanta::decode {

namespace {

constexpr std::chrono::milliseconds kPollInterval{50};
constexpr std::chrono::microseconds kFlagInterval{500};

}  // namespace

Result WaitForPicture(list::PictureEntry& entry, const WaitRequest& request,
                      DecodeNotices* notices) {
    bool aborted = false;
    if (entry.decoding.load() && request.timeout.count() != 0) {
        if (request.notify && notices != nullptr) {
            notices->Waiting467(entry);
        }
        const auto deadline = std::chrono::steady_clock::now() + request.timeout;
        auto nextLook = std::chrono::steady_clock::now();
        while (entry.decoding.load() && std::chrono::steady_clock::now() < deadline) {
            // The input is looked at every 50 ms; the flag far more often, so that a picture
            // is shown as soon as it is there rather than at the next look.
            if (std::chrono::steady_clock::now() >= nextLook) {
                nextLook += kPollInterval;
                if (request.abortable && !aborted && request.navigationPending &&
                    request.navigationPending() && settings::EnableAbortableImageLoading.On()) {
                    entry.abortFlag.store(1);
                    aborted = true;
                }
            }
            std::this_thread::sleep_for(kFlagInterval);
        }
    }
    // The picture is read only once the worker has let go of the entry: its clearing of
    // the decoding flag publishes what it stored.
    const bool decoding = entry.decoding.load();
    const bool picture = !decoding && entry.decodedPicture != nullptr;
    if (request.notify && notices != nullptr) {
        notices->WaitOver468(aborted && !picture, entry);
    }
    if (aborted) {
        return picture ? S_OK : S_FALSE;
    }
    if (!picture) {
        const Result last =
            decoding ? E_FAIL : Result(static_cast<std::uint32_t>(entry.decodeResult));
        return last.Failed() ? last : E_FAIL;
    }
    return S_OK;
}

}  // namespace orvanta::decode
