#include "pf/platform/KoPlatformTrace.h"

#include <cerrno>

namespace KoPlatform
{

int TraceEvent(unsigned int command, int /*event*/, const void* /*data*/, unsigned int /*size*/)
{
    switch (command)
    {
    case TRACE_INSERT_SIMPLE_EVENT:
    case TRACE_INSERT_COMPLEX_EVENT:
    case TRACE_INSERT_STRING_EVENT:
        return ENOTSUP;
    default:
        return EINVAL;
    }
}

} // namespace KoPlatform
