#include "app/check_point.h"

static_assert(std::atomic<double>::is_always_lock_free,
              "the crash handler reads CheckPoint from a signal handler");
