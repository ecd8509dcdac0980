#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoSyslog.h"

/// Errors of the operating system and errors that end the process.
///
/// `module` is passed on to KoSyslog::logMsg. A text is never used as a format except where the parameter is
/// called so. Any thread may report; a process installs its error handler before it has other threads.
namespace KoError
{

/// Logs "%s (operating system error %d, %s)" and returns. \param osError an `errno` value.
KO_EXPORT void reportOSError(int module, KoSyslog::Severity severity, int osError, const char* text);

/// The same with the calling thread's last error.
KO_EXPORT void reportOSError(int module, KoSyslog::Severity severity, const char* text);

/// Logs "%s (operating system error %d, %s) - aborting process" and aborts.
[[noreturn]] KO_EXPORT void fatalOSError(int module, int osError, const char* text);

/// The same with the calling thread's last error.
[[noreturn]] KO_EXPORT void fatalOSError(int module, const char* text);

/// Logs "%s - aborting process" and aborts.
[[noreturn]] KO_EXPORT void fatalError(int module, const char* text);

/// Logs the formatted text and runs the error handler; a handler that returns is followed by an abort.
[[noreturn]] KO_EXPORT void criticalError(int module, const char* format, ...) KO_PRINTF(2, 3);

/// Installs what criticalError runs. A null handler restores exitHandlerFunc with a null argument.
KO_EXPORT void setErrorHandler(void (*handler)(void*), void* argument);

/// The initial handler: installs abortHandlerFunc, so that an error raised while the process exits aborts,
/// and exits with status 1.
[[noreturn]] KO_EXPORT void exitHandlerFunc(void* argument);

/// Aborts the process.
[[noreturn]] KO_EXPORT void abortHandlerFunc(void* argument);

} // namespace KoError
