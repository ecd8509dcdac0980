#include "pf/base/CKoString.h"
#include "pf/base/KoShortCopy.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

/// Stands for "up to the zero byte"; no block can hold that much, so longer texts are refused all the same.
constexpr unsigned int MOST_BYTES = 0xFFFFFFFFU;

bool isWhiteSpace(char byte)
{
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

unsigned int countLeadingWhiteSpace(const char* text, unsigned int bytes)
{
    unsigned int count = 0;
    while (count != bytes && isWhiteSpace(text[count]))
    {
        ++count;
    }
    return count;
}

unsigned int countTrailingWhiteSpace(const char* text, unsigned int bytes)
{
    unsigned int count = 0;
    while (count != bytes && isWhiteSpace(text[bytes - count - 1U]))
    {
        ++count;
    }
    return count;
}

void copyBytes(char* target, const char* source, unsigned int count)
{
    if (count <= KoPrivate::SHORT_COPY)
    {
        KoPrivate::copyShort(target, source, count);
    }
    else
    {
        std::memcpy(target, source, count);
    }
}

/// True when eight bytes are ASCII and none is zero. Reads no byte behind a zero.
bool areEightAscii(const char* bytes)
{
    const auto* const b = reinterpret_cast<const signed char*>(bytes);
    return b[0] > 0 && b[1] > 0 && b[2] > 0 && b[3] > 0 && b[4] > 0 && b[5] > 0 && b[6] > 0 && b[7] > 0;
}

/// Bytes before the first zero byte or the first that is not ASCII, at most `maxBytes`.
unsigned int countAscii(const char* text, unsigned int maxBytes)
{
    unsigned int count = maxBytes >= 8U && areEightAscii(text) ? 8U : 0U;
    while (count != maxBytes && static_cast<signed char>(text[count]) > 0)
    {
        ++count;
    }
    return count;
}

} // namespace

/// Bytes that can be appended in place.
unsigned int CKoString::spare() const
{
    return isShared() ? 0U : m_data->capacity - m_data->byteLength;
}

/// Counts in what was put behind the text.
void CKoString::grow(unsigned int bytes, unsigned int characters)
{
    m_data->byteLength += bytes;
    m_data->charCount += characters;
    m_data->text()[m_data->byteLength] = '\0';
}

CKoString& CKoString::append(const char* text)
{
    return text == nullptr ? *this : append(text, MOST_BYTES);
}

CKoString& CKoString::append(const char* text, unsigned int maxBytes)
{
    if (text == nullptr || maxBytes == 0U)
    {
        return *this;
    }
    const unsigned int ascii = countAscii(text, std::min<unsigned int>(maxBytes, KoPrivate::SHORT_COPY));
    const bool isAll = ascii == maxBytes || text[ascii] == '\0';
    if (isAll && ascii != 0U && ascii <= spare())
    {
        KoPrivate::copyShort(m_data->text() + m_data->byteLength, text, ascii);
        grow(ascii, ascii);
        return *this;
    }
    return appendChecked(text, strnlen(text, maxBytes));
}

/// Appends bytes without a zero among them after checking them. They may lie in this string's own block.
CKoString& CKoString::appendChecked(const char* text, std::size_t count)
{
    if (count == 0U)
    {
        return *this;
    }
    const unsigned int end = m_data->byteLength;
    // A block that is about to be replaced must outlive the bytes that are read from it.
    CKoString keeper;
    if (!hasRoom(end + static_cast<unsigned long long>(count)))
    {
        keeper = *this;
        if (!makePrivate(end + static_cast<unsigned long long>(count)))
        {
            return *this;
        }
    }
    const unsigned int bytes = static_cast<unsigned int>(count);
    const KoPrivate::SUtf8Span valid = KoPrivate::copyValidUtf8(m_data->text() + end, text, bytes);
    grow(valid.byteLength, valid.charCount);
    return *this;
}

CKoString& CKoString::append(const CKoString& other)
{
    const unsigned int bytes = other.m_data->byteLength;
    const unsigned int characters = other.m_data->charCount;
    if (bytes != 0U && (bytes <= spare() || makePrivate(0ULL + m_data->byteLength + bytes)))
    {
        // Read after growing: the other string may be this one.
        copyBytes(m_data->text() + m_data->byteLength, other.m_data->text(), bytes);
        grow(bytes, characters);
    }
    return *this;
}

CKoString CKoString::operator+(const CKoString& other) const
{
    CKoString sum(*this);
    sum.append(other);
    return sum;
}

CKoString& CKoString::internalAppend(const char* bytes, unsigned int count)
{
    if (bytes == nullptr || count == 0U || *bytes == '\0')
    {
        return *this;
    }
    const CKoString keeper(hasRoom(0ULL + m_data->byteLength + count) ? null : *this);
    if (makePrivate(0ULL + m_data->byteLength + count))
    {
        std::memcpy(m_data->text() + m_data->byteLength, bytes, count);
        grow(count, KoPrivate::countSequences(bytes, count));
    }
    return *this;
}

/// Puts `text` in the place of a span of the own text, with one copy of each byte when a new block is needed.
void CKoString::replaceSpan(unsigned int offset, unsigned int removedBytes, unsigned int removedCharacters,
                            const CKoString& text)
{
    const unsigned int inserted = text.byteLength();
    const unsigned int tail = m_data->byteLength - offset - removedBytes;
    const unsigned long long needed = 0ULL + offset + inserted + tail;
    const unsigned int characters = KoPrivate::without(m_data->charCount, removedCharacters) + text.length();
    if (!isValidCapacity(needed))
    {
        reportCapacity(__LINE__, "CKoString::addReference", needed);
        return;
    }

    const unsigned int bytes = static_cast<unsigned int>(needed);
    const char* const rest = m_data->text() + offset + removedBytes;
    SStringData* const target = hasRoom(bytes) ? m_data : allocateBlock(bytes);
    std::memmove(target->text() + offset + inserted, rest, tail);
    std::memcpy(target->text() + offset, text.c_str(), inserted);
    if (target != m_data)
    {
        std::memcpy(target->text(), m_data->text(), offset);
        adoptBlock(target);
    }
    setLength(bytes, characters);
}

void CKoString::insert(const_iterator& position, const CKoString& text)
{
    if (text.isEmpty() || !contains(position))
    {
        return;
    }
    if (&text == this)
    {
        insert(position, copyOf(c_str(), byteLength(), length()));
        return;
    }
    const unsigned int offset = offsetOf(position);
    replaceSpan(offset, 0U, 0U, text);
    position = const_iterator(m_data->text() + offset);
}

void CKoString::remove(const_iterator& position, unsigned int count)
{
    if (!contains(position))
    {
        return;
    }
    const unsigned int offset = offsetOf(position);
    const char* last = position.address();
    const unsigned int characters = KoPrivate::stepForward(last, count);
    replaceSpan(offset, offsetOf(const_iterator(last)) - offset, characters, null);
    position = const_iterator(m_data->text() + offset);
}

CKoString& CKoString::clear()
{
    if (!isValidCapacity(m_data->capacity))
    {
        reportCapacity(__LINE__, "CKoString::addReference", m_data->capacity);
        return *this;
    }
    makePrivateEmpty(m_data->capacity);
    return *this;
}

CKoString& CKoString::truncate(unsigned int count)
{
    if (m_data->charCount > count)
    {
        const char* last = m_data->text();
        const unsigned int characters = KoPrivate::stepForward(last, count);
        truncateTo(offsetOf(const_iterator(last)), characters);
    }
    return *this;
}

CKoString& CKoString::truncate(const const_iterator& position)
{
    if (contains(position) && position != end())
    {
        const unsigned int characters = KoPrivate::countSteps(c_str(), position.address());
        truncateTo(offsetOf(position), std::min(characters, m_data->charCount));
    }
    return *this;
}

void CKoString::truncateTo(unsigned int bytes, unsigned int characters)
{
    if (isShared())
    {
        SStringData* const block = allocateBlock(bytes);
        std::memcpy(block->text(), m_data->text(), bytes);
        adoptBlock(block);
    }
    setLength(bytes, characters);
}

CKoString& CKoString::trim()
{
    const unsigned int bytes = m_data->byteLength;
    const unsigned int leading = countLeadingWhiteSpace(c_str(), bytes);
    const unsigned int trailing = leading == bytes ? 0U : countTrailingWhiteSpace(c_str(), bytes);
    const unsigned int total = leading + trailing;
    if (total == 0U)
    {
        return *this;
    }
    if (!isValidCapacity(m_data->capacity))
    {
        reportCapacity(__LINE__, "CKoString::trim", m_data->capacity);
        return *this;
    }
    const unsigned int characters = KoPrivate::without(m_data->charCount, total);
    SStringData* const target = isShared() ? allocateBlock(m_data->capacity - total) : m_data;
    std::memmove(target->text(), m_data->text() + leading, bytes - total);
    if (target != m_data)
    {
        adoptBlock(target);
    }
    setLength(bytes - total, characters);
    return *this;
}
