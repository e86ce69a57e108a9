// What the mark writer tells the window: before every message it asks the window to leave
// full-screen states (the notice the frame also gets when memory runs out), then the message
// itself by language text id. The writer never waits for the user.
//
// Thread rules: called on the mark writer thread (or by orvanta-cli on its own thread); the
// frame implements both with queued calls.
#pragma once

#include <vector>

#include "i18n/format_text.h"

namespace orvanta::marks {

enum class MessageIcon { Information, Stop };

class MarkWriterNotices {
public:
    virtual ~MarkWriterNotices() = default;
    virtual void LeaveFullScreen46F() = 0;
    // Text `textId` formatted with `arguments`, in a box titled `titleId`.
    virtual void Message(int textId, int titleId, MessageIcon icon,
                         std::vector<i18n::FormatArg> arguments) = 0;
};

}  // namespace orvanta::marks
