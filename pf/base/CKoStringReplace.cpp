#include "pf/base/CKoString.h"
#include "pf/base/KoByteSearch.h"
#include "pf/base/KoShortCopy.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

/// True for text whose characters are what its positions step over, with no zero byte to stop them.
bool isPlain(const CKoString& string)
{
    const char* const text = string.c_str();
    return KoPrivate::countSteps(text, text + string.byteLength()) == string.length() &&
           std::memchr(text, '\0', string.byteLength()) == nullptr;
}

/// An occurrence of a plain pattern, in bytes from the start: as many characters as the pattern has, which
/// may have more bytes where continuation bytes follow that belong to none.
struct SMatch
{
    unsigned int first;
    unsigned int end;
};

/// The occurrences of a pattern in a text, one after the other and not beyond a zero byte. The first ones are
/// remembered, so that going through them again does not search for them again; the text may have moved by
/// then.
class CMatches
{
public:
    CMatches(const CKoString& text, const CKoString& pattern)
        : m_pattern(pattern)
        , m_isPlain(isPlain(pattern))
        , m_end(static_cast<unsigned int>(strnlen(text.c_str(), text.byteLength())))
    {
    }

    void restart()
    {
        m_index = 0;
        m_next = 0;
    }

    /// \return false when there is no further one.
    bool findNext(const char* text, SMatch& match)
    {
        if (m_index < m_rememberedCount)
        {
            match = m_remembered[m_index];
        }
        else if (!search(text, match))
        {
            return false;
        }
        ++m_index;
        m_next = match.end;
        return true;
    }

private:
    static constexpr unsigned int MOST_REMEMBERED = 512U;

    bool search(const char* text, SMatch& match)
    {
        const char* const found =
            KoPrivate::findBytes(text + m_next, m_end - m_next, m_pattern.c_str(), m_pattern.byteLength());
        if (found == nullptr)
        {
            return false;
        }
        match.first = static_cast<unsigned int>(found - text);
        match.end = static_cast<unsigned int>(findEnd(found) - text);
        if (m_index < MOST_REMEMBERED)
        {
            m_remembered[m_index] = match;
            m_rememberedCount = m_index + 1U;
        }
        return true;
    }

    const char* findEnd(const char* found) const
    {
        const char* end = found;
        if (!m_isPlain)
        {
            KoPrivate::stepForward(end, m_pattern.length());
            return end;
        }
        end += m_pattern.byteLength();
        while (KoPrivate::isContinuation(*end))
        {
            ++end;
        }
        return end;
    }

    const CKoString& m_pattern;
    const bool m_isPlain;
    const unsigned int m_end; ///< where the search ends
    unsigned int m_index = 0;
    unsigned int m_next = 0; ///< where it goes on
    unsigned int m_rememberedCount = 0;
    SMatch m_remembered[MOST_REMEMBERED];
};

/// What a row of replacements does to a text.
struct SGrowth
{
    unsigned long long bytes;   ///< what it has in the end
    unsigned long long mostNew; ///< the most that it had after any of the replacements
    unsigned int characters;
    unsigned int replacements;
};

SGrowth measure(CMatches& matches, const CKoString& text, const CKoString& from, const CKoString& to)
{
    SGrowth growth = {text.byteLength(), 0U, text.length(), 0U};
    for (SMatch match; matches.findNext(text.c_str(), match);)
    {
        growth.bytes = growth.bytes - (match.end - match.first) + to.byteLength();
        growth.mostNew = std::max(growth.mostNew, growth.bytes);
        const unsigned int bytes = static_cast<unsigned int>(std::min(growth.bytes, 0xFFFFFFFFULL));
        const unsigned int left = KoPrivate::without(growth.characters, from.length());
        growth.characters = KoPrivate::plausibleCount(bytes, left + to.length());
        ++growth.replacements;
    }
    matches.restart();
    return growth;
}

char* putBytes(char* target, const char* source, unsigned int count)
{
    if (count <= KoPrivate::SHORT_COPY)
    {
        KoPrivate::copyShort(target, source, count);
    }
    else
    {
        std::memmove(target, source, count);
    }
    return target + count;
}

/// Writes the text with its replacements. It may lie behind the target in the same block, as far as it grows.
void build(char* target, const char* text, unsigned int byteLength, CMatches& matches, const CKoString& to)
{
    unsigned int next = 0;
    for (SMatch match; matches.findNext(text, match);)
    {
        target = putBytes(target, text + next, match.first - next);
        target = putBytes(target, to.c_str(), to.byteLength());
        next = match.end;
    }
    putBytes(target, text + next, byteLength - next);
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
    else
    {
        replaceInOnePass(from, to);
    }
}

/// Goes through all matches twice: first to learn the size, then to build the text in one block of the
/// capacity that one replacement after the other would end with.
void CKoString::replaceInOnePass(const CKoString& from, const CKoString& to)
{
    const unsigned int oldBytes = m_data->byteLength;
    CMatches matches(*this, from);
    const SGrowth growth = measure(matches, *this, from, to);
    if (growth.replacements == 0U)
    {
        return;
    }
    if (!isValidCapacity(m_data->capacity))
    {
        reportCapacity(__LINE__, "CKoString::replace", m_data->capacity);
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
    build(target->text(), source, oldBytes, matches, to);
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
