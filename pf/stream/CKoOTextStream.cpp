#include "pf/stream/CKoOTextStream.h"

#include "pf/base/CKoString.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/stream/KoXmlEscape.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <functional>

namespace
{

constexpr unsigned int FIRST_CAPACITY = 128;

/// Room that a formatted item finds; every number fits into it.
constexpr unsigned int ITEM_ROOM = 32;

constexpr int SIGNIFICANT_DIGITS = 6; // as "%g"

std::to_chars_result toText(char* first, char* last, double value)
{
    return std::to_chars(first, last, value, std::chars_format::general, SIGNIFICANT_DIGITS);
}

template <class T>
std::to_chars_result toText(char* first, char* last, T value)
{
    return std::to_chars(first, last, value);
}

} // namespace

CKoOTextStream::CKoOTextStream(unsigned int capacity)
    : m_begin(nullptr)
    , m_capacityEnd(nullptr)
    , m_cursor(nullptr)
    , m_flags(0)
    , m_width(0)
{
    resize(capacity);
}

CKoOTextStream::CKoOTextStream(const CKoOTextStream& other)
    : CKoOTextStream(other.capacity())
{
    write(other.m_begin, other.length());
    m_flags = other.m_flags;
}

CKoOTextStream::~CKoOTextStream()
{
    KoMemory::release(m_begin);
}

CKoOTextStream& CKoOTextStream::operator=(const CKoOTextStream& other)
{
    if (this != &other)
    {
        resize(0);
        resize(other.capacity());
        write(other.m_begin, other.length());
        m_flags = other.m_flags;
        m_width = other.m_width;
    }
    return *this;
}

void CKoOTextStream::resize(unsigned int capacity)
{
    if (capacity == 0)
    {
        KoMemory::release(m_begin);
        m_begin = nullptr;
        m_capacityEnd = nullptr;
        m_cursor = nullptr;
    }
    else if (capacity > length())
    {
        setCapacity(capacity);
    }
}

void CKoOTextStream::trim()
{
    if (length() == 0)
    {
        resize(0);
    }
    else if (spare() > 1)
    {
        resize(length() + 1);
    }
}

const char* CKoOTextStream::c_str() const
{
    if (spare() == 0)
    {
        grow(0);
    }
    *m_cursor = '\0';
    return m_begin;
}

void CKoOTextStream::streamWrite(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    int count = -1;
    if (checkSpare(ITEM_ROOM))
    {
        count = std::vsnprintf(m_cursor, spare(), format, arguments);
    }
    if (count >= 0 && static_cast<std::size_t>(count) >= spare())
    {
        const bool fits = checkSpare(static_cast<unsigned int>(count));
        count = fits ? std::vsnprintf(m_cursor, spare(), format, again) : -1;
    }
    va_end(again);
    va_end(arguments);
    if (count < 0)
    {
        m_width = 0;
        return;
    }
    // In a field the item is a text, which ends at its first zero.
    const std::size_t written = static_cast<std::size_t>(count);
    finishItem(m_width == 0 ? written : strnlen(m_cursor, written));
}

CKoOTextStream& CKoOTextStream::operator<<(bool value)
{
    if ((m_flags & BOOL_ALPHA) == 0)
    {
        return putNumber(value ? 1 : 0);
    }
    value ? write("true", 4) : write("false", 5);
    return *this;
}

CKoOTextStream& CKoOTextStream::operator<<(int value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(unsigned int value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(long value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(unsigned long value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(long long value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(unsigned long long value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(double value)
{
    return putNumber(value);
}

CKoOTextStream& CKoOTextStream::operator<<(char character)
{
    (m_flags & XML_ESCAPE) != 0 ? putEscaped(&character, 1) : putPlain(&character, 1);
    return *this;
}

CKoOTextStream& CKoOTextStream::operator<<(const CKoString& text)
{
    if ((m_flags & XML_ESCAPE) != 0)
    {
        return putText(text.c_str());
    }
    write(text.c_str(), text.byteLength());
    return *this;
}

CKoOTextStream& CKoOTextStream::operator<<(void (*manipulator)(CKoOTextStream&))
{
    if (manipulator != nullptr)
    {
        manipulator(*this);
    }
    return *this;
}

/// Makes room for `count` more characters and a terminating zero where there is none.
bool CKoOTextStream::grow(unsigned long long count) const
{
    const unsigned long long need = length() + count + 1;
    if (need > UINT_MAX)
    {
        doCheapAssert(__LINE__, "CKoOTextStream");
        return false;
    }
    unsigned long long grown = capacity() == 0 ? FIRST_CAPACITY : capacity();
    while (grown < need)
    {
        grown *= 2;
    }
    setCapacity(static_cast<unsigned int>(std::min<unsigned long long>(grown, UINT_MAX)));
    return true;
}

void CKoOTextStream::setCapacity(unsigned int capacity) const
{
    const unsigned int kept = length();
    m_begin = static_cast<char*>(KoMemory::reallocChecked(m_begin, capacity));
    m_capacityEnd = m_begin + capacity;
    m_cursor = m_begin + kept;
}

/// What write leaves: nothing to write, no room.
void CKoOTextStream::writeGrowing(const char* text, std::size_t count)
{
    if (text == nullptr || count == 0)
    {
        return;
    }
    const char* const source = makeRoom(text, count);
    if (source != nullptr)
    {
        std::memcpy(m_cursor, source, count);
        m_cursor += count;
    }
}

/// Makes room for `count` more characters and a terminating zero. \return where `text`, which may lie in the
/// array, is then; null, reported, when no array can have them.
const char* CKoOTextStream::makeRoom(const char* text, unsigned long long count)
{
    if (count < spare())
    {
        return text;
    }
    const bool isOwn = !std::less<>()(text, static_cast<const char*>(m_begin)) &&
                       std::less<>()(text, static_cast<const char*>(m_capacityEnd));
    const std::ptrdiff_t offset = isOwn ? text - m_begin : 0;
    if (!grow(count))
    {
        return nullptr;
    }
    return isOwn ? m_begin + offset : text;
}

/// What the operator for texts leaves: null, a width, escaping.
CKoOTextStream& CKoOTextStream::putText(const char* text)
{
    if (text != nullptr)
    {
        const std::size_t count = std::strlen(text);
        (m_flags & XML_ESCAPE) != 0 ? putEscaped(text, count) : putPlain(text, count);
    }
    return *this;
}

/// Appends a text in a pending field width.
void CKoOTextStream::putPlain(const char* text, std::size_t count)
{
    if (m_width == 0)
    {
        return writeText(text, count);
    }
    const char* const source = makeRoom(text, std::max<std::size_t>(count, ITEM_ROOM));
    if (source != nullptr)
    {
        std::memcpy(m_cursor, source, count);
        finishItem(count);
    }
}

void CKoOTextStream::putEscaped(const char* text, std::size_t count)
{
    const char* const source = makeRoom(text, KoPrivate::escapedLength(text, count));
    if (source != nullptr)
    {
        m_cursor = KoPrivate::copyEscaped(m_cursor, source, count);
    }
}

/// Takes `count` characters that stand behind the text into it, at the end of a pending field.
void CKoOTextStream::finishItem(std::size_t count)
{
    const unsigned int width = m_width;
    m_width = 0;
    if (width <= count)
    {
        m_cursor += count;
    }
    else if (checkSpare(width))
    {
        const std::size_t blanks = width - count;
        std::memmove(m_cursor + blanks, m_cursor, count);
        std::memset(m_cursor, ' ', blanks);
        m_cursor += width;
    }
}

template <class T>
CKoOTextStream& CKoOTextStream::putNumber(T value)
{
    if (checkSpare(ITEM_ROOM))
    {
        const std::to_chars_result end = toText(m_cursor, m_cursor + ITEM_ROOM, value);
        finishItem(static_cast<std::size_t>(end.ptr - m_cursor));
    }
    return *this;
}

void koBoolAlpha(CKoOTextStream& stream)
{
    stream.setFlags(stream.flags() | CKoOTextStream::BOOL_ALPHA);
}

void koNoBoolAlpha(CKoOTextStream& stream)
{
    stream.setFlags(stream.flags() & ~CKoOTextStream::BOOL_ALPHA);
}

void koXmlEscape(CKoOTextStream& stream)
{
    stream.setFlags(stream.flags() | CKoOTextStream::XML_ESCAPE);
}

void koNoXmlEscape(CKoOTextStream& stream)
{
    stream.setFlags(stream.flags() & ~CKoOTextStream::XML_ESCAPE);
}
