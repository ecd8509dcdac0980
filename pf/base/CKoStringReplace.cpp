#include "pf/base/CKoString.h"
#include "pf/base/KoByteSearch.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

/// True for text whose characters are what its positions step over, and which no zero byte ends early.
bool isPlain(const CKoString& string)
{
    const char* const text = string.c_str();
    return KoPrivate::countSteps(text, text + string.byteLength()) == string.length() &&
           std::memchr(text, '\0', string.byteLength()) == nullptr;
}

/// The text that a row of replacements has not reached yet.
struct SRest
{
    const char* first;
    const char* end;
};

/// An occurrence of a plain pattern: as many characters as the pattern has, which may have more bytes where
/// continuation bytes follow that belong to none.
struct SMatch
{
    const char* first;
    const char* end;

    bool isFound() const { return first != nullptr; }

    unsigned int byteLength() const { return static_cast<unsigned int>(end - first); }
};

SMatch findNext(const SRest& rest, const CKoString& pattern)
{
    const std::size_t length = static_cast<std::size_t>(rest.end - rest.first);
    const char* const found =
        KoPrivate::findBytesBeforeZero(rest.first, length, pattern.c_str(), pattern.byteLength());
    if (found == nullptr)
    {
        return {nullptr, nullptr};
    }
    const char* end = found + pattern.byteLength();
    while (KoPrivate::isContinuation(*end))
    {
        ++end;
    }
    return {found, end};
}

/// What a row of replacements does to a text.
struct SGrowth
{
    unsigned long long bytes;   ///< what it has in the end
    unsigned long long mostNew; ///< the most that it had after any of the replacements
    unsigned int characters;
    unsigned int replacements;
};

SGrowth measure(SRest rest, unsigned int characters, const CKoString& from, const CKoString& to)
{
    SGrowth growth = {static_cast<unsigned long long>(rest.end - rest.first), 0U, characters, 0U};
    for (SMatch match = findNext(rest, from); match.isFound(); match = findNext(rest, from))
    {
        growth.bytes = growth.bytes - match.byteLength() + to.byteLength();
        growth.mostNew = std::max(growth.mostNew, growth.bytes);
        const unsigned int bytes = static_cast<unsigned int>(std::min(growth.bytes, 0xFFFFFFFFULL));
        const unsigned int left = KoPrivate::without(growth.characters, from.length());
        growth.characters = KoPrivate::plausibleCount(bytes, left + to.length());
        ++growth.replacements;
        rest.first = match.end;
    }
    return growth;
}

char* moveTo(char* target, const char* first, const char* last)
{
    const std::size_t bytes = static_cast<std::size_t>(last - first);
    std::memmove(target, first, bytes);
    return target + bytes;
}

void build(char* target, SRest rest, const CKoString& from, const CKoString& to)
{
    for (SMatch match = findNext(rest, from); match.isFound(); match = findNext(rest, from))
    {
        target = moveTo(target, rest.first, match.first);
        target = moveTo(target, to.c_str(), to.c_str() + to.byteLength());
        rest.first = match.end;
    }
    moveTo(target, rest.first, rest.end);
}

} // namespace

void CKoString::replace(const_iterator& position, unsigned int count, const CKoString& text)
{
    if (count == 0U)
    {
        insert(position, text);
        return;
    }
    if (!contains(position) || position == end())
    {
        return;
    }
    if (!isValidCapacity(m_data->capacity))
    {
        reportCapacity(__LINE__, "CKoString::replace", m_data->capacity);
        return;
    }
    if (&text == this)
    {
        replace(position, count, copyOf(c_str(), byteLength(), length()));
        return;
    }
    const unsigned int offset = offsetOf(position);
    const char* last = position.address();
    const unsigned int characters = KoPrivate::stepForward(last, count);
    replaceSpan(offset, offsetOf(const_iterator(last)) - offset, characters, text);
    position = const_iterator(m_data->text() + offset);
}

void CKoString::replaceAll(const CKoString& from, const CKoString& to)
{
    if (from.isEmpty())
    {
        return;
    }
    if (&from == this || &to == this)
    {
        const CKoString oldFrom(copyOf(from.c_str(), from.byteLength(), from.length()));
        const CKoString oldTo(copyOf(to.c_str(), to.byteLength(), to.length()));
        replaceAll(oldFrom, oldTo);
    }
    else if (isPlain(from) && isPlain(to))
    {
        replaceInOnePass(from, to);
    }
    else
    {
        replaceEach(from, to);
    }
}

/// One replacement after the other, for the patterns whose characters do not add up to their bytes.
void CKoString::replaceEach(const CKoString& from, const CKoString& to)
{
    const_iterator position = find(from);
    while (position != end())
    {
        replace(position, from.length(), to);
        const char* behind = position.address();
        KoPrivate::stepForward(behind, to.length());
        position = find(from, const_iterator(behind));
    }
}

/// Finds everything twice: first to learn the size, then to build the text in one block of the capacity that
/// one replacement after the other would end with.
void CKoString::replaceInOnePass(const CKoString& from, const CKoString& to)
{
    const unsigned int oldBytes = m_data->byteLength;
    const SGrowth growth = measure({c_str(), c_str() + oldBytes}, m_data->charCount, from, to);
    if (growth.replacements == 0U)
    {
        return;
    }
    const unsigned long long capacity =
        isShared() ? growth.mostNew : std::max(growth.mostNew, 0ULL + oldBytes);
    if (!isValidCapacity(capacity))
    {
        reportCapacity(__LINE__, "CKoString::addReference", capacity);
        return;
    }

    SStringData* const target =
        hasRoom(capacity) ? m_data : allocateBlock(static_cast<unsigned int>(capacity));
    const char* source = c_str();
    if (target == m_data)
    {
        // With the old text moved up by the most that it grows, what is written never catches up with what is
        // read.
        char* const moved = m_data->text() + (capacity - oldBytes);
        std::memmove(moved, source, oldBytes + 1U);
        source = moved;
    }
    build(target->text(), {source, source + oldBytes}, from, to);
    if (target != m_data)
    {
        adoptBlock(target);
    }
    setLength(static_cast<unsigned int>(growth.bytes), growth.characters);
}

void CKoString::replaceArg(const CKoString& argument)
{
    const char* target = nullptr;
    char lowest = '9' + 1;
    for (const char* at = std::strchr(c_str(), '%'); at != nullptr; at = std::strchr(at + 1, '%'))
    {
        if (at[1] >= '0' && at[1] < lowest)
        {
            target = at;
            lowest = at[1];
        }
    }
    if (target != nullptr)
    {
        const_iterator position(target);
        replace(position, 2U, argument);
    }
}
