#include "pf/oswrapper/KoError.h"

#include "pf/oswrapper/KoOperatingSystem.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace
{

const char* describe(int osError)
{
    const char* text = std::strerror(osError);
    return text != nullptr ? text : "unknown";
}

} // namespace

namespace KoError
{

struct SErrorHandlerInfo
{
    void (*handler)(void*);
    void* argument;
};

static SErrorHandlerInfo sErrorHandlerInfo = {exitHandlerFunc, nullptr};

} // namespace KoError

void KoError::reportOSError(int module, KoSyslog::Severity severity, int osError, const char* text)
{
    KoSyslog::logMsg(module, severity, "%s (operating system error %d, %s)", text, osError,
                     describe(osError));
}

void KoError::reportOSError(int module, KoSyslog::Severity severity, const char* text)
{
    reportOSError(module, severity, KoOperatingSystem::getLastError(), text);
}

void KoError::fatalOSError(int module, int osError, const char* text)
{
    KoSyslog::logMsg(module, KoSyslog::Critical, "%s (operating system error %d, %s) - aborting process",
                     text, osError, describe(osError));
    std::abort();
}

void KoError::fatalOSError(int module, const char* text)
{
    fatalOSError(module, KoOperatingSystem::getLastError(), text);
}

void KoError::fatalError(int module, const char* text)
{
    KoSyslog::logMsg(module, KoSyslog::Critical, "%s - aborting process", text);
    std::abort();
}

void KoError::criticalError(int module, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    KoSyslog::vlogMsg(module, KoSyslog::Critical, format, arguments);
    va_end(arguments);
    sErrorHandlerInfo.handler(sErrorHandlerInfo.argument);
    std::abort();
}

void KoError::setErrorHandler(void (*handler)(void*), void* argument)
{
    sErrorHandlerInfo = handler != nullptr ? SErrorHandlerInfo{handler, argument}
                                           : SErrorHandlerInfo{exitHandlerFunc, nullptr};
}

void KoError::exitHandlerFunc(void*)
{
    setErrorHandler(abortHandlerFunc, nullptr);
    KoSyslog::logMsg(0, KoSyslog::Info, "terminating process using exit(EXIT_FAILURE)");
    std::exit(EXIT_FAILURE);
}

void KoError::abortHandlerFunc(void*)
{
    KoSyslog::logMsg(0, KoSyslog::Info, "terminating process using abort()");
    std::abort();
}
