#pragma once

#include "pf/containers/KoContainerAssertions.h"

/// Reports of broken preconditions of TKoPtrVector.
namespace KoPtrVectorAssertions
{

/// Reports `code` at the file text "TKoPtrVector". Any thread may call.
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

} // namespace KoPtrVectorAssertions
