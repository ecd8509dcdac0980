#include "pf/base/KoFormatStringHelper.h"

#include <cstddef>
#include <cstdio>

int KoFormatStringHelper::doVsnprintf(char* buffer, int size, const char* format, va_list arguments)
{
    return size < 0 ? -1 : std::vsnprintf(buffer, static_cast<std::size_t>(size), format, arguments);
}
