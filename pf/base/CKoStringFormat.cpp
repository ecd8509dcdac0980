#include "pf/base/CKoString.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

bool CKoString::format(const char* format, ...)
{
    char buffer[257];
    va_list arguments;
    va_start(arguments, format);
    const bool isWhole = doFormat(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return isWhole;
}

bool CKoString::strprintf(char* buffer, unsigned int size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const bool isWhole = doFormat(buffer, size, format, arguments);
    va_end(arguments);
    return isWhole;
}

bool CKoString::doFormat(char* buffer, unsigned int size, const char* format, va_list arguments)
{
    if (size == 0U || buffer == nullptr)
    {
        return false;
    }
    const int result = format == nullptr ? -1 : std::vsnprintf(buffer, size, format, arguments);
    const unsigned int whole = static_cast<unsigned int>(std::max(result, 0));
    const unsigned int room = size - 1U;
    buffer[room] = '\0';

    const KoPrivate::SUtf8Span valid = KoPrivate::validateUtf8(buffer, std::min(whole, room));
    if (makePrivateEmpty(valid.byteLength))
    {
        std::memcpy(m_data->text(), buffer, valid.byteLength);
        setLength(valid.byteLength, valid.charCount);
    }
    return result >= 0 && whole <= room;
}
