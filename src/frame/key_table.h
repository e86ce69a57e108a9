// The language module's accelerator tables as Qt key sequences, for the frame's shortcuts.
// Shift with a digit is written "Shift+3" in the module, but Qt reports the character the
// layout puts there ('#' on a US keyboard): the frame matches digit keys by their native
// key code rather than through these sequences. Pure functions; user-interface thread.
#pragma once

#include <vector>

#include <QKeySequence>

#include "i18n/language_module.h"

namespace orvanta::frame {

// The key sequence of one accelerator; an empty sequence for a key name Qt has no key for.
QKeySequence KeySequenceFor(const i18n::Accelerator& accelerator);

struct Shortcut {
    QKeySequence keys;
    int command = 0;
};

std::vector<Shortcut> Shortcuts(const std::vector<i18n::Accelerator>& table);

}  // namespace orvanta::frame
