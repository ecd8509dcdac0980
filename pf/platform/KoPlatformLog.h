#pragma once

#include "pf/base/KoExport.h"

/// The system-logger client of the platform.
///
/// One call sends one line as one datagram to the socket of the system logger: "/dev/log", or the path in the
/// environment variable "KO_PLATFORM_LOG" at the moment of connecting. Code above this layer logs through
/// KoSyslog::logMsg, which adds the process id, the length limit and the fallback.
namespace KoPlatform
{

/// Receives lines in place of the logger. Called by the logging thread, possibly by several at once; it must
/// neither log nor wait for a thread that logs. Its result is the result of slogf: bytes taken, or -1 with
/// `errno` set.
using LogSink = int (*)(int opcode, int severity, const char* line);

/// Formats a line and hands it to the system logger as `<PRI>program[pid]: (opcode) line`, where PRI is the
/// user facility with severity 0 to 7. Lines above 1151 bytes are cut.
///
/// Never blocks, never raises a signal, takes no lock and allocates nothing. A logger that was restarted is
/// found again by the next line; lines that a full logger refused are counted and reported as
/// "n log lines lost" ahead of the next line it takes.
/// \return the number of bytes sent with `errno` unchanged, or -1 with `errno`: ENOENT when no logger runs,
/// EAGAIN when it is full, anything else as the socket reported it. Any thread may call it, also in a forked
/// child.
KO_EXPORT int slogf(int opcode, int severity, const char* format, ...) KO_PRINTF(3, 4);

/// Hands the lines of all threads to `sink` instead of the logger; null restores the logger.
/// \return the previous sink, null if there was none.
KO_EXPORT LogSink setLogSink(LogSink sink);

} // namespace KoPlatform
