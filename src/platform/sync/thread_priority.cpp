#include "platform/sync/thread_priority.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace orvanta::platform {

void LowerCurrentThreadPriority() {
    // On Linux a thread id names one thread for setpriority; two steps of nice are the
    // distance between "normal" and "below normal".
    const auto thread = static_cast<id_t>(syscall(SYS_gettid));
    const int current = getpriority(PRIO_PROCESS, thread);
    (void)setpriority(PRIO_PROCESS, thread, current + 2);
}

}  // namespace orvanta::platform
