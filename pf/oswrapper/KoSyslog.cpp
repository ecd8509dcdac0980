#include "pf/oswrapper/KoSyslog.h"

#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/platform/KoPlatformLog.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace
{

constexpr int DEFAULT_CODE = 10000;
constexpr unsigned int MODULE_SHIFT = 20;
constexpr std::size_t MAX_LINE_LENGTH = 1024;

int makeOpcode(int code, int module)
{
    return static_cast<int>(static_cast<unsigned int>(code) |
                            (static_cast<unsigned int>(module) << MODULE_SHIFT));
}

void reportFailure()
{
    const int error = errno;
    std::fprintf(stderr, "pid: %d: cannot write to syslog: %s\n", ::getpid(), std::strerror(error));
}

/// Formats "pid %d: " and the message into a line of MAX_LINE_LENGTH characters at most.
KO_PRINTF(2, 0)
bool formatLine(char (&line)[MAX_LINE_LENGTH + 1], const char* format, va_list arguments)
{
    const int prefixLength = std::snprintf(line, sizeof(line), "pid %d: ", ::getpid());
    if (prefixLength < 0)
    {
        return false;
    }
    const std::size_t offset = static_cast<std::size_t>(prefixLength);
    const int messageLength = std::vsnprintf(line + offset, sizeof(line) - offset, format, arguments);
    line[MAX_LINE_LENGTH] = '\0';
    return messageLength >= 0;
}

} // namespace

void KoSyslog::logMsg(int module, Severity severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vlogMsg(DEFAULT_CODE, module, severity, format, arguments);
    va_end(arguments);
}

void KoSyslog::vlogMsg(int module, Severity severity, const char* format, va_list arguments)
{
    vlogMsg(DEFAULT_CODE, module, severity, format, arguments);
}

void KoSyslog::logMsg(int code, int module, Severity severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vlogMsg(code, module, severity, format, arguments);
    va_end(arguments);
}

void KoSyslog::vlogMsg(int code, int module, Severity severity, const char* format, va_list arguments)
{
    if (format == nullptr)
    {
        return;
    }
    const KoErrnoGuard errnoGuard;
    char line[MAX_LINE_LENGTH + 1];
    if (!formatLine(line, format, arguments))
    {
        reportFailure();
        return;
    }
    if (KoPlatform::slogf(makeOpcode(code, module), severity, "%s", line) == -1 && errno != ENOENT)
    {
        reportFailure();
    }
}
