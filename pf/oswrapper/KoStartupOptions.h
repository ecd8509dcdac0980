#pragma once

#include "pf/base/KoExport.h"

/// The start-up options that the library itself obeys, evaluated once from the process's arguments when the
/// library is loaded, or by the first query if that comes earlier. Later arguments override earlier ones;
/// malformed values are ignored. No heap is used. Any thread may query.
namespace KoStartupOptions
{

/// False if "--nobreak" was given. Not used inside the library.
KO_EXPORT bool isBreakEnabled();

/// The value of "--memtrace=", 0 or 1; 1 turns the heap accounting of KoMemory on.
KO_EXPORT unsigned int getMemoryTraceLevel();

} // namespace KoStartupOptions
