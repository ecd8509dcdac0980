#pragma once

#include "pf/base/KoExport.h"

/// Reports of broken preconditions of the containers. Each container has a front of its own
/// (KoVectorAssertions, ...) that supplies its name. A report returns unless assertions abort the process;
/// the operation that reported then gives its neutral result and leaves the container as it was.
namespace KoContainerAssertions
{

/// What was broken. Each value has one fixed message.
enum ErrorCode
{
    IndexOutOfRange = 0,         ///< "Index our of range"
    InvalidParameter = 1,        ///< "Invalid parameter"
    InvalidIteratorPosition = 2, ///< "Invalid iterator position"
    InvalidInternalState = 3     ///< "Invalid internal state"
};

/// Reports `code` at `file` and `line`. Any thread may call.
KO_EXPORT void reportAssertion(ErrorCode code, const char* file, unsigned int line);

/// Reports `code` at "<unknown file>", line 0.
KO_EXPORT void reportAssertion(ErrorCode code);

} // namespace KoContainerAssertions
