#pragma once

#include "pf/base/KoExport.h"

/// The order in which the library's static objects are constructed when it is loaded, in one place.
/// Each definition names its entry: `static TKoStartupCaller<evaluate> sCaller
/// KO_INIT_ORDER(KoLoadOrder::STARTUP_OPTIONS);`. Objects that may be needed before their turn are also set
/// up on first use, exactly once.
namespace KoLoadOrder
{

enum Priority
{
    CIRCULAR_BUFFER_EMPTY_STRING = 1001,
    DEVICE_SERVER_REGISTRY,
    MEMORY_TRACE,
    MONOTONIC_BIAS,
    STARTUP_OPTIONS,
    NULL_STREAM,
    FIXED_POINT_CONSTANTS,
    INVALID_VERSION,
    RUNTIME_INFO_CLASS_ID,
    STRING_STATICS,
    BACKTRACE_LOCK
};

} // namespace KoLoadOrder
