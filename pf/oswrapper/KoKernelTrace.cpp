#include "pf/oswrapper/KoKernelTrace.h"

#include "pf/platform/KoPlatformTrace.h"

#include <cerrno>
#include <cstring>

namespace
{

bool insert(unsigned int command, int event, const void* data, unsigned int size)
{
    const int error = KoPlatform::TraceEvent(command, event, data, size);
    if (error == 0 || error == ENOTSUP)
    {
        return true;
    }
    errno = error;
    return false;
}

} // namespace

namespace KoKernelTrace
{

const bool USE_KERNEL_EVENTS = true;

bool addSimpleUserEvent(int event, int first, int second)
{
    const int values[] = {first, second};
    return insert(KoPlatform::TRACE_INSERT_SIMPLE_EVENT, event, values, sizeof(values));
}

bool addComplexUserEvent(int event, void* data, unsigned int size)
{
    if (data == nullptr || size == 0U)
    {
        return false;
    }
    return insert(KoPlatform::TRACE_INSERT_COMPLEX_EVENT, event, data, size);
}

bool addStringUserEvent(int event, const char* text)
{
    if (text == nullptr)
    {
        return false;
    }
    const auto size = static_cast<unsigned int>(std::strlen(text) + 1U);
    return insert(KoPlatform::TRACE_INSERT_STRING_EVENT, event, text, size);
}

} // namespace KoKernelTrace
