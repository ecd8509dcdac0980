#pragma once

#include "pf/base/CKoString.h"
#include "pf/base/KoExport.h"

/// The start-up options that the library itself obeys, evaluated once from the process's arguments when the
/// library is loaded, or by the first query if that comes earlier. Later arguments override earlier ones;
/// malformed values are ignored. No heap is used for them. Any thread may query.
namespace KoStartupOptions
{

/// False if "--nobreak" was given. Not used inside the library.
KO_EXPORT bool isBreakEnabled();

/// The value of "--memtrace=", 0 or 1; 1 turns the heap accounting of KoMemory on.
KO_EXPORT unsigned int getMemoryTraceLevel();

/// The process's own arguments, without the program's name, joined by single blanks; empty if there are none.
/// They are not evaluated, and those of option files are not among them (see KoCommandLineOptions).
KO_EXPORT CKoString getCommandLine();

} // namespace KoStartupOptions
