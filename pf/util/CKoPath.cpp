#include "pf/util/CKoPath.h"

#include "pf/base/CKoStringFiller.h"
#include "pf/base/KoUtf8.h"

#include <cstddef>
#include <cstring>
#include <cwctype>

namespace
{

using KoPrivate::CKoStringFiller;

static_assert(sizeof(CKoPath) == sizeof(CKoString), "a path is its text");

constexpr char BACKSLASH = '\\';

constexpr char TWO_SEPARATORS[] = {CKoPath::SEPARATOR, CKoPath::SEPARATOR, '\0'};

/// "C:/" and shorter.
constexpr unsigned int LONGEST_DRIVE = 3U;

/// Bytes of the text as the platform understands it: a text that came out of a stream may hold a zero byte,
/// which ends the path.
unsigned int bytesBeforeZero(const CKoString& text)
{
    return static_cast<unsigned int>(std::strlen(text.c_str()));
}

/// Characters in the first `bytes` bytes of the text.
unsigned int charactersIn(const CKoString& text, unsigned int bytes)
{
    return bytes == text.byteLength() ? text.length() : KoPrivate::countSequences(text.c_str(), bytes);
}

/// \return the characters from byte `first` up to byte `last`; neither is inside a character.
CKoString partOf(const CKoString& text, unsigned int first, unsigned int last)
{
    if (first == last)
    {
        return CKoString();
    }
    const char* const bytes = text.c_str();
    const bool isAscii = text.length() == text.byteLength();
    const unsigned int characters =
        isAscii ? last - first : KoPrivate::countSteps(bytes + first, bytes + last);
    CKoString part(last - first);
    std::memcpy(CKoStringFiller::text(part), bytes + first, last - first);
    CKoStringFiller::setLength(part, last - first, characters);
    return part;
}

/// The separators that the canonical form of the first `bytes` bytes, behind which is a zero, lacks.
unsigned int countSuperfluous(const char* text, unsigned int bytes)
{
    unsigned int count = 0;
    // Most paths have none at all.
    const bool isEndingInSeparator = bytes > 1U && text[bytes - 1U] == CKoPath::SEPARATOR;
    if (!isEndingInSeparator && std::strstr(text, TWO_SEPARATORS) == nullptr)
    {
        return count;
    }
    bool isBehindSeparator = false;
    for (unsigned int at = 0; at != bytes; ++at)
    {
        const bool isSeparator = text[at] == CKoPath::SEPARATOR;
        count += isSeparator && isBehindSeparator ? 1U : 0U;
        isBehindSeparator = isSeparator;
    }
    return count + (isBehindSeparator && bytes - count > 1U ? 1U : 0U);
}

/// Copies the first `bytes` bytes of the canonical form of the text, which has at least as many.
void copyCanonical(char* target, const char* text, unsigned int bytes)
{
    char previous = '\0';
    for (const char* const end = target + bytes; target != end; ++text)
    {
        if (*text != CKoPath::SEPARATOR || previous != CKoPath::SEPARATOR)
        {
            *target++ = *text;
        }
        previous = *text;
    }
}

/// The separator in front of the last component, or 0 when there is none but at the beginning. The text is
/// not empty.
unsigned int findLastSeparator(const CKoString& text)
{
    const char* const bytes = text.c_str();
    unsigned int at = text.byteLength() - 1U;
    while (at != 0U && bytes[at] == CKoPath::SEPARATOR)
    {
        --at;
    }
    while (at != 0U && bytes[at] != CKoPath::SEPARATOR)
    {
        --at;
    }
    return at;
}

/// \return the empty text when the joined one does not fit into a path.
CKoString join(const CKoString& left, const char* right, std::size_t rightBytes)
{
    const unsigned int leftBytes = bytesBeforeZero(left);
    const std::size_t bytes = rightBytes + leftBytes + 1U;
    if (rightBytes >= CKoPath::MAXLEN || bytes >= CKoPath::MAXLEN)
    {
        return CKoString();
    }
    CKoString joined(static_cast<unsigned int>(bytes));
    char* const target = CKoStringFiller::text(joined);
    std::memcpy(target, left.c_str(), leftBytes);
    target[leftBytes] = CKoPath::SEPARATOR;
    const KoPrivate::SUtf8Span tail =
        KoPrivate::copyValidUtf8(target + leftBytes + 1U, right, static_cast<unsigned int>(rightBytes));
    CKoStringFiller::setLength(joined, leftBytes + 1U + tail.byteLength,
                               charactersIn(left, leftBytes) + 1U + tail.charCount);
    return joined;
}

CKoString join(const CKoString& left, const char* right)
{
    return right == nullptr ? join(left, "", 0U) : join(left, right, std::strlen(right));
}

CKoString join(const CKoString& left, const CKoString& right)
{
    return join(left, right.c_str(), bytesBeforeZero(right));
}

} // namespace

bool CKoPath::isRoot() const
{
    doCanonify();
    CKoString::const_iterator at = m_text.begin();
    if (*at == static_cast<unsigned char>(SEPARATOR))
    {
        return m_text.length() == 1U;
    }
    if (m_text.length() > LONGEST_DRIVE || std::iswalpha(*at) == 0)
    {
        return false;
    }
    return *++at == static_cast<unsigned char>(':');
}

CKoString CKoPath::getLeaf() const
{
    if (!isValid())
    {
        return CKoString();
    }
    unsigned int leaf = findLastSeparator(m_text);
    while (m_text.c_str()[leaf] == SEPARATOR)
    {
        ++leaf;
    }
    return leaf == 0U ? m_text : partOf(m_text, leaf, m_text.byteLength());
}

CKoString CKoPath::getBranch() const
{
    if (!isValid())
    {
        return CKoString();
    }
    const unsigned int separator = findLastSeparator(m_text);
    if (separator != 0U)
    {
        return partOf(m_text, 0U, separator);
    }
    return *m_text.c_str() == SEPARATOR ? CKoString(&SEPARATOR, 1U) : CKoString();
}

CKoPath& CKoPath::canonify()
{
    doCanonify();
    return *this;
}

void CKoPath::doCanonify() const
{
    m_text = canonify(m_text);
}

CKoString CKoPath::canonify(const CKoString& text)
{
    const unsigned int bytes = bytesBeforeZero(text);
    const unsigned int superfluous = countSuperfluous(text.c_str(), bytes);
    if (bytes - superfluous == text.byteLength())
    {
        return text;
    }
    if (bytes == 0U)
    {
        return CKoString();
    }
    CKoString canonical(bytes - superfluous);
    copyCanonical(CKoStringFiller::text(canonical), text.c_str(), bytes - superfluous);
    CKoStringFiller::setLength(canonical, bytes - superfluous, charactersIn(text, bytes) - superfluous);
    return canonical;
}

void CKoPath::convertSeparators(char* text)
{
    for (; text != nullptr && *text != '\0'; ++text)
    {
        if (*text == BACKSLASH)
        {
            *text = SEPARATOR;
        }
    }
}

void CKoPath::setSimulationRoot(const char*)
{
}

bool CKoPath::operator==(const CKoPath& other) const
{
    doCanonify();
    return m_text == canonify(other.m_text);
}

CKoPath& CKoPath::operator/=(const char* text)
{
    m_text = join(m_text, text);
    return *this;
}

CKoPath& CKoPath::operator/=(const CKoPath& other)
{
    m_text = join(m_text, other.m_text);
    return *this;
}

CKoPath operator/(const CKoPath& left, const CKoPath& right)
{
    CKoPath joined;
    joined.m_text = join(left.m_text, right.m_text);
    return joined;
}

CKoPath operator/(const CKoPath& left, const char* right)
{
    CKoPath joined;
    joined.m_text = join(left.m_text, right);
    return joined;
}

IKoOStream& operator<<(IKoOStream& stream, const CKoPath& path)
{
    return stream << path.m_text;
}

const IKoIStream& operator>>(const IKoIStream& stream, CKoPath& path)
{
    return stream >> path.m_text;
}
