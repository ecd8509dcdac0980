#pragma once

#include "pf/base/KoExport.h"

class CKoString;

/// Writes the calling thread's stack and the loaded objects of the process into a text file, for analysis
/// against the linker's map file. Called for every reported assertion and every failed checked allocation.
///
/// Any thread may call. Dumps are serialised by one lock, so records in one file never interleave; the call
/// may wait for another thread's dump. A forked child can dump at once, also when it was forked during a
/// dump. A file that cannot be opened is named on standard output and nothing
/// else happens.
namespace KoBacktrace
{

/// Writes the file's base name into its argument and returns the header text of the record. It runs under the
/// dump lock; a dump that it causes itself is written without an information function.
using InfoFunction = CKoString (*)(CKoString& fileBaseName);

/// Dumps into directory/name.extension, the name and a header line being supplied by the information
/// function. By default the name is "PID%d". \param append true: the record goes to the end of the file;
/// false: writing starts at its beginning, without cutting it.
KO_EXPORT void doBacktrace(const CKoString& information, const CKoString& directory,
                           const CKoString& extension, bool append);

/// The same without an information function and without touching the heap: the name is "PID%d", the header
/// holds thread and process id. A null text is reported as an assertion, and nothing is written then.
KO_EXPORT void doBacktraceNoAlloc(const char* information, const char* directory, const char* extension,
                                  bool append);

/// What both do. \param infos the information function, or null.
KO_EXPORT void doBacktraceInternal(const char* information, const char* directory, const char* extension,
                                   bool append, InfoFunction infos);

/// Installs the information function; null installs none.
KO_EXPORT void setInfos(InfoFunction infos);

} // namespace KoBacktrace
