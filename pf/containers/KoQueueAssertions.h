#pragma once

#include "pf/containers/KoContainerAssertions.h"

/// Reports of broken preconditions of TKoQueue.
namespace KoQueueAssertions
{

/// Reports `code` at the file text "TKoQueue". Any thread may call.
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

} // namespace KoQueueAssertions
