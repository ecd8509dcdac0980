#pragma once

#include "pf/containers/KoContainerAssertions.h"

/// Reports and index checks of the vectors. Each check tells whether its arguments are valid and reports at
/// the file text "TKoVector" and the given line of the caller when they are not. Any thread may call.
namespace KoVectorAssertions
{

/// Reports `code` at the file text "TKoVector".
KO_EXPORT void doAssert(KoContainerAssertions::ErrorCode code, unsigned int line);

/// Valid when 0 <= index < size, else "Invalid parameter".
KO_EXPORT bool checkGet(int index, int size, unsigned int line);

/// Valid when newSize >= 0, else "Invalid parameter".
KO_EXPORT bool checkResize(int newSize, unsigned int line);

/// Valid when first >= 0 and last < size, else "Index out of range"; and first <= last, else
/// "Invalid parameter".
KO_EXPORT bool checkErase(int first, int last, int size, unsigned int line);

/// Valid when 0 <= index <= size, else "Index our of range"; and value is not null, else "Invalid parameter".
KO_EXPORT bool checkInsert(int index, const void* value, int size, unsigned int line);

} // namespace KoVectorAssertions
