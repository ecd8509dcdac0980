#pragma once

#include "pf/base/KoExport.h"

/// The kernel's event tracer.
namespace KoPlatform
{

/// Commands of TraceEvent, with the kernel's numbers.
enum TraceCommand : unsigned int
{
    TRACE_INSERT_STRING_EVENT = 0x30000020U,
    TRACE_INSERT_SIMPLE_EVENT = 0x4000001EU,
    TRACE_INSERT_COMPLEX_EVENT = 0x4000001FU
};

/// Inserts a user event into the kernel's trace.
/// \return an error number: this kernel does not trace user events, so a known command is `ENOTSUP`, any
/// other `EINVAL`. Leaves `errno` alone.
KO_EXPORT int TraceEvent(unsigned int command, int event, const void* data, unsigned int size);

} // namespace KoPlatform
