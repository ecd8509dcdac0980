#include "pf/stream/KoXmlEscape.h"

#include "pf/base/KoByteVector.h"

#include <cstring>

namespace
{

struct SEntity
{
    char text[7];
    unsigned char length;
};

/// The entity of a character; that of most is the character itself.
inline const SEntity* findEntity(char character)
{
    static constexpr SEntity QUOTE = {"&quot;", 6};
    static constexpr SEntity AMPERSAND = {"&amp;", 5};
    static constexpr SEntity APOSTROPHE = {"&apos;", 6};
    static constexpr SEntity LESS = {"&lt;", 4};
    static constexpr SEntity GREATER = {"&gt;", 4};
    switch (character)
    {
    case '"':
        return &QUOTE;
    case '&':
        return &AMPERSAND;
    case '\'':
        return &APOSTROPHE;
    case '<':
        return &LESS;
    case '>':
        return &GREATER;
    default:
        return nullptr;
    }
}

unsigned long long countByByte(const char* text, std::size_t count)
{
    unsigned long long length = count;
    for (std::size_t i = 0; i < count; ++i)
    {
        const SEntity* const entity = findEntity(text[i]);
        length += entity == nullptr ? 0U : entity->length - 1U;
    }
    return length;
}

char* copyByByte(char* target, const char* text, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
    {
        const SEntity* const entity = findEntity(text[i]);
        if (entity == nullptr)
        {
            *target++ = text[i];
        }
        else
        {
            std::memcpy(target, entity->text, entity->length);
            target += entity->length;
        }
    }
    return target;
}

#if KO_HAS_BYTE_VECTOR

using KoPrivate::ByteVector;
using KoPrivate::VECTOR_SIZE;

inline ByteVector areEqual(ByteVector bytes, char character)
{
    return reinterpret_cast<ByteVector>(bytes == KoPrivate::spread(static_cast<unsigned char>(character)));
}

/// The characters that may have an entity: those that have one, and '#', which has none. In pairs and a group
/// of four they differ in one or two bits only.
inline ByteVector candidates(ByteVector bytes)
{
    static_assert(('<' | 2) == '>' && ('"' | 5) == '\'' && ('&' | 5) == '\'' && ('#' | 5) == '\'');
    return areEqual(bytes | KoPrivate::spread(2), '>') | areEqual(bytes | KoPrivate::spread(5), '\'');
}

/// How many characters each of sixteen becomes beyond itself, at most 5.
inline ByteVector growths(ByteVector bytes)
{
    const ByteVector quotes = areEqual(bytes, '"') | areEqual(bytes, '\'');
    const ByteVector brackets = areEqual(bytes | KoPrivate::spread(2), '>');
    return (quotes & KoPrivate::spread(5)) | (brackets & KoPrivate::spread(3)) |
           (areEqual(bytes, '&') & KoPrivate::spread(4));
}

constexpr unsigned int GROUP = 4 * VECTOR_SIZE;

/// How many characters four times sixteen become beyond themselves.
inline unsigned int groupGrowth(const char* text)
{
    const ByteVector a = KoPrivate::loadVector(text);
    const ByteVector b = KoPrivate::loadVector(text + VECTOR_SIZE);
    const ByteVector c = KoPrivate::loadVector(text + VECTOR_SIZE + VECTOR_SIZE);
    const ByteVector d = KoPrivate::loadVector(text + GROUP - VECTOR_SIZE);
    if (!KoPrivate::hasTopBit(candidates(a) | candidates(b) | candidates(c) | candidates(d)))
    {
        return 0;
    }
    return KoPrivate::sumSmall(growths(a) + growths(b) + growths(c) + growths(d));
}

#endif

} // namespace

unsigned long long KoPrivate::escapedLength(const char* text, std::size_t count)
{
    unsigned long long length = 0;
#if KO_HAS_BYTE_VECTOR
    for (; count >= GROUP; count -= GROUP, text += GROUP)
    {
        length += GROUP + groupGrowth(text);
    }
#endif
    return length + countByByte(text, count);
}

char* KoPrivate::copyEscaped(char* target, const char* text, std::size_t count)
{
#if KO_HAS_BYTE_VECTOR
    while (count >= VECTOR_SIZE)
    {
        const ByteVector bytes = loadVector(text);
        std::memcpy(target, &bytes, VECTOR_SIZE);
        const unsigned int marks = topBits(candidates(bytes));
        const unsigned int plain = marks == 0 ? VECTOR_SIZE : static_cast<unsigned int>(__builtin_ctz(marks));
        target += plain;
        text += plain;
        count -= plain;
        if (marks != 0)
        {
            target = copyByByte(target, text, 1);
            ++text;
            --count;
        }
    }
#endif
    return copyByByte(target, text, count);
}
