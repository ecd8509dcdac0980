#pragma once

#include "pf/containers/KoContainerAssertions.h"

class CKoListNodeBase;

/// Reports of broken preconditions of TKoList and its nodes.
namespace KoListAssertions
{

/// Reports `code` at the file text "TKoList". Any thread may call.
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

/// Valid when `node` is not null, else "Invalid iterator position". \return whether it is.
KO_EXPORT bool checkNode(const CKoListNodeBase* node, unsigned int line);

} // namespace KoListAssertions
