// Thread priorities in the manner of the platform's "below normal": a higher nice value for
// the calling thread only, where the system permits it. Call on the thread itself.
#pragma once

namespace orvanta::platform {

void LowerCurrentThreadPriority();

}  // namespace orvanta::platform
