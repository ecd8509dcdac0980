#pragma once

#include "pf/containers/KoContainerAssertions.h"

/// Reports of broken preconditions of TKoConstRefCountedVector.
namespace KoConstRefCountedVectorAssertions
{

/// Reports `code` at the file text "TKoConstRefCountedVector". Any thread may call.
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

} // namespace KoConstRefCountedVectorAssertions
