#include "pf/oswrapper/KoMemUtilities.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{

constexpr std::uintptr_t WORD_SIZE = sizeof(unsigned int);

bool isAligned(const void* pointer, std::uintptr_t alignment)
{
    return (reinterpret_cast<std::uintptr_t>(pointer) & (alignment - 1)) == 0;
}

/// Stores `count` words from `dst` on, which is aligned to a word but points at elements of another type.
void fillWords(void* dst, std::size_t count, unsigned int word)
{
    char* position = static_cast<char*>(__builtin_assume_aligned(dst, WORD_SIZE));
    for (; count > 0; --count)
    {
        std::memcpy(__builtin_assume_aligned(position, WORD_SIZE), &word, WORD_SIZE);
        position += WORD_SIZE;
    }
}

} // namespace

unsigned int* KoMemUtilities::castToUInt32Ptr(void* pointer)
{
    return isAligned(pointer, sizeof(unsigned int)) ? static_cast<unsigned int*>(pointer) : nullptr;
}

const unsigned int* KoMemUtilities::castToUInt32Ptr(const void* pointer)
{
    return isAligned(pointer, sizeof(unsigned int)) ? static_cast<const unsigned int*>(pointer) : nullptr;
}

unsigned short* KoMemUtilities::castToUInt16Ptr(void* pointer)
{
    return isAligned(pointer, sizeof(unsigned short)) ? static_cast<unsigned short*>(pointer) : nullptr;
}

const unsigned short* KoMemUtilities::castToUInt16Ptr(const void* pointer)
{
    return isAligned(pointer, sizeof(unsigned short)) ? static_cast<const unsigned short*>(pointer) : nullptr;
}

void KoMemUtilities::memFillUInt64(unsigned long long* dst, unsigned int count, unsigned long long value)
{
    if (dst == nullptr)
    {
        return;
    }
    for (unsigned int i = 0; i < count; ++i)
    {
        dst[i] = value;
    }
}

void KoMemUtilities::memFillUInt32(unsigned int* dst, unsigned int count, unsigned int value)
{
    if (dst == nullptr)
    {
        return;
    }
    for (unsigned int i = 0; i < count; ++i)
    {
        dst[i] = value;
    }
}

void KoMemUtilities::memFillUInt16(unsigned short* dst, unsigned int count, unsigned short value)
{
    if (dst == nullptr || count == 0)
    {
        return;
    }
    if (!isAligned(dst, WORD_SIZE))
    {
        *dst++ = value;
        --count;
    }
    const unsigned int doubled = value * 0x10001U;
    fillWords(dst, count / 2, doubled);
    if (count % 2 != 0)
    {
        dst[count - 1] = value;
    }
}

void KoMemUtilities::memFillUInt8(unsigned char* dst, unsigned int count, unsigned char value)
{
    if (dst != nullptr)
    {
        std::memset(dst, value, count);
    }
}

void KoMemUtilities::memFillNibble(unsigned char* dst, unsigned int count, unsigned char value,
                                   unsigned int startAtLowNibble)
{
    if (dst == nullptr || count == 0)
    {
        return;
    }
    const unsigned int nibble = value & 0x0FU;
    if (startAtLowNibble != 0)
    {
        *dst = static_cast<unsigned char>((*dst & 0xF0U) | nibble);
        ++dst;
        --count;
    }
    if (count % 2 != 0)
    {
        unsigned char& last = dst[count / 2];
        last = static_cast<unsigned char>((last & 0x0FU) | (nibble << 4));
    }
    memFillUInt8(dst, count / 2, static_cast<unsigned char>(nibble * 17));
}
