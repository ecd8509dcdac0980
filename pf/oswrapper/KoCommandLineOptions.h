#pragma once

#include "pf/base/KoExport.h"

/// The process's command line, extended by option files, for code that was not handed `argc` and `argv`.
///
/// An argument "@path" names an option file: each line of its section "COMMANDLINE" (see CKoConfigFileParser)
/// becomes one further argument behind those that are there, unchanged. Lines may name further option files.
/// A file that cannot be opened is logged and skipped. There are at most 256 arguments; lines beyond are
/// dropped.
///
/// An option is an argument that begins with "-" or, until disableWin32Prefixes, with "/"; all such
/// characters in front of its name are skipped, also in front of a name that is looked up. Its value stands
/// behind a "=" or is the next argument:
///
///     prog -v --size=10 -n 5     isOptionSet("v"), getOptionArg("size"), getOptionArg("n")
///
/// The first call of any function builds the vector, under a lock; it reads the option files and may wait for
/// them. From then on no lock is taken, nothing is allocated and every text stays where it is for the life of
/// the process. Any thread may call. A process with no arguments at all or more than 100 of its own, the
/// program's name included, is taken for damaged: its arguments are not evaluated, KoStartupOptions finds
/// none any more, and each call logs so.
namespace KoCommandLineOptions
{

/// Number of arguments, the program's name and those of option files included.
KO_EXPORT int getARGC();

/// The arguments: getARGC() texts.
KO_EXPORT const char* const* getARGV();

/// \return the argument; null for an index outside 0 to getARGC() - 1.
KO_EXPORT const char* getARG(int index);

/// Whether an option of this name is there, with or without a value; null is no option's name.
KO_EXPORT bool isOptionSet(const char* name);

/// \return the value of the first option of this name that has one: the text behind its "=", possibly empty,
/// or the next argument if that is no option. Null if there is none.
KO_EXPORT const char* getOptionArg(const char* name);

/// Whether "/" begins an option, too; so it is until disableWin32Prefixes.
KO_EXPORT bool win32PrefixesEnabled();

/// From now on only "-" begins an option.
KO_EXPORT void disableWin32Prefixes();

} // namespace KoCommandLineOptions
