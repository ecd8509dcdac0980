#include "pf/base/CKoString.h"
#include "pf/base/KoUtf8.h"
#include "pf/oswrapper/KoMemory.h"

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

    assignFormatted(buffer, std::min(whole, room));
    return result >= 0 && whole <= room;
}

/// Allocates for all bytes before it checks them: that they are valid is the rule, and freshly written bytes
/// are slow to read back at once. When they are not, the block is made again for those that are.
void CKoString::assignFormatted(const char* bytes, unsigned int count)
{
    const bool isInPlace = hasRoom(count);
    SStringData* const target = isInPlace ? m_data : allocateBlock(count);
    const KoPrivate::SUtf8Span valid = KoPrivate::copyValidUtf8(target->text(), bytes, count);
    if (isInPlace || valid.byteLength == count)
    {
        if (!isInPlace)
        {
            adoptBlock(target);
        }
        setLength(valid.byteLength, valid.charCount);
        return;
    }
    KoMemory::release(target);
    makePrivateEmpty(valid.byteLength);
    std::memcpy(m_data->text(), bytes, valid.byteLength);
    setLength(valid.byteLength, valid.charCount);
}
