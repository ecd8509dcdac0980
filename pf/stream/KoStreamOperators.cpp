#include "pf/stream/KoStreamOperators.h"

#include <algorithm>

namespace
{

constexpr unsigned int MAX_VALUE_SIZE = 8;

static_assert(sizeof(int) == 4 && sizeof(unsigned long long) == MAX_VALUE_SIZE &&
                  sizeof(double) == MAX_VALUE_SIZE,
              "the sizes of values in a stream");

void copyReversed(void* dst, const void* src, unsigned int size)
{
    const auto* const bytes = static_cast<const unsigned char*>(src);
    std::reverse_copy(bytes, bytes + size, static_cast<unsigned char*>(dst));
}

} // namespace

unsigned int KoPrivate::writeValue(IKoOStream& stream, const void* value, unsigned int size)
{
    if (IS_LITTLE_ENDIAN)
    {
        return stream.doWrite(value, size);
    }
    unsigned char bytes[MAX_VALUE_SIZE];
    copyReversed(bytes, value, size);
    return stream.doWrite(bytes, size);
}

unsigned int KoPrivate::readValue(const IKoIStream& stream, void* value, unsigned int size)
{
    if (IS_LITTLE_ENDIAN)
    {
        return stream.doRead(value, size);
    }
    // Begins as the old value, so that bytes that do not come stay what they were.
    unsigned char bytes[MAX_VALUE_SIZE];
    copyReversed(bytes, value, size);
    const unsigned int count = stream.doRead(bytes, size);
    copyReversed(value, bytes, size);
    return count;
}

const IKoIStream& operator>>(const IKoIStream& stream, char& value)
{
    stream.read(&value, sizeof(value));
    return stream;
}

IKoOStream& operator<<(IKoOStream& stream, const int& value)
{
    KoPrivate::writeValue(stream, &value, sizeof(value));
    return stream;
}

IKoOStream& operator<<(IKoOStream& stream, const unsigned int& value)
{
    KoPrivate::writeValue(stream, &value, sizeof(value));
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream, unsigned int& value)
{
    KoPrivate::readValue(stream, &value, sizeof(value));
    return stream;
}

IKoOStream& operator<<(IKoOStream& stream, const unsigned long long& value)
{
    KoPrivate::writeValue(stream, &value, sizeof(value));
    return stream;
}

const IKoIStream& operator>>(const IKoIStream& stream, unsigned long long& value)
{
    KoPrivate::readValue(stream, &value, sizeof(value));
    return stream;
}
