// The desktop program's start-up and session: the single-instance test, the language
// module, the settings, the frame, the start-up background thread, the command line's
// requests and the event loop, in a fixed order, each step storing its CheckPoint value.
// Returns the process exit code: 1 after a normal session, 0 when a running instance took
// the arguments or start-up gave up, -1 without a language module.
//
// Thread rules: user-interface thread; called once per process.
#pragma once

#include <string>
#include <vector>

namespace orvanta::app {

// `arguments` includes the program name first.
int RunProgram(int argc, char** argv);

// The start-up background thread's work: codec warm-up, then the seams for plug-ins and the
// update check. Runs below normal priority and ends by itself.
void StartupTasks();

}  // namespace orvanta::app
