#pragma once

#include "pf/containers/KoContainerAssertions.h"

/// Reports of broken preconditions of TKoList.
namespace KoListAssertions
{

/// Reports `code` at the file text "TKoList". Any thread may call.
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

} // namespace KoListAssertions
