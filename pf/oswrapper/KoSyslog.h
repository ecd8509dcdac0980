#pragma once

#include "pf/base/KoExport.h"

#include <cstdarg>

/// The one path of the library, and of the processes built on it, to the system logger.
///
/// A line is "pid %d: " and the formatted text, cut at 1024 characters, handed over whole. A line that cannot
/// be written is replaced by a note on standard error; without a logger it is lost silently.
///
/// Any thread may log at any time: no lock, no heap, no waiting. `errno` is unchanged by every call.
namespace KoSyslog
{

/// Severity of a line, passed unchanged to the system logger.
enum Severity
{
    Shutdown = 0,
    Critical = 1,
    Error = 2,
    Warning = 3,
    Notice = 4,
    Info = 5,
    Debug1 = 6,
    Debug2 = 7
};

/// Logs with message code 10000. \param module number of the caller's module, 0 for the library itself.
/// \param format printf format; null logs nothing.
KO_EXPORT void logMsg(int module, Severity severity, const char* format, ...) KO_PRINTF(3, 4);

/// The same with a `va_list`.
KO_EXPORT void vlogMsg(int module, Severity severity, const char* format, va_list arguments) KO_PRINTF(3, 0);

/// Logs with an explicit message code. The opcode of the line is `code | (module << 20)`.
KO_EXPORT void logMsg(int code, int module, Severity severity, const char* format, ...) KO_PRINTF(4, 5);

/// The same with a `va_list`.
KO_EXPORT void vlogMsg(int code, int module, Severity severity, const char* format, va_list arguments)
    KO_PRINTF(4, 0);

} // namespace KoSyslog
