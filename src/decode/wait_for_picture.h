// The user-interface thread's wait for the picture of an entry that a worker is decoding:
// looks at the input every 50 ms until the decode ends or the timeout passes, telling the window
// when the wait starts and ends. With `abortable` and EnableAbortableImageLoading, pending
// navigation input (the caller's check; the window looks for wheel and navigation keys in
// its event queue) aborts the decode, so the user is never held up by a picture they have
// already moved past.
//
// Returns: after an abort, S_FALSE when no picture came, else S_OK; otherwise S_OK with a
// picture, the entry's failure code without one (E_FAIL when the code is no failure).
//
// Thread rules: runs on the user-interface thread; the workers change the entry meanwhile.
#pragma once

#include <chrono>
#include <functional>

#include "decode/decode_notices.h"
#include "platform/result.h"

namespace orvanta::list {
struct PictureEntry;
}

namespace orvanta::decode {

struct WaitRequest {
    bool abortable = true;  // commands that need the pixels (keep, editors) pass false
    bool notify = true;     // send the waiting and wait-over notices
    std::chrono::milliseconds timeout{60'000};
    // True when navigation input is pending; none: never.
    std::function<bool()> navigationPending;
};

Result WaitForPicture(list::PictureEntry& entry, const WaitRequest& request,
                      DecodeNotices* notices);

}  // namespace orvanta::decode
