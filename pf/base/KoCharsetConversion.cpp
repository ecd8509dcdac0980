#include "pf/base/KoCharsetConversion.h"

#include "pf/base/CKoStringFiller.h"
#include "pf/base/KoByteVector.h"
#include "pf/base/KoShortCopy.h"
#include "pf/base/KoUtf8.h"
#include "pf/containers/KoAlgorithm.h"
#include "pf/oswrapper/CKoAsserter.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{

using KoPrivate::CKoStringFiller;
using KoPrivate::SUtf8Span;

static_assert(sizeof(SKoConvTable) == 1024U && sizeof(SKoReverseConvTable) == 1026U, "tables have no gaps");

constexpr unsigned int ASCII_COUNT = 128U;

/// The code point of a byte of ISO 8859-1.
constexpr unsigned int codePointOf8859_1(unsigned int byte)
{
    return byte;
}

/// The code point of a byte of ISO 8859-15, which differs from ISO 8859-1 in eight places.
constexpr unsigned int codePointOf8859_15(unsigned int byte)
{
    switch (byte)
    {
    case 0xA4U:
        return 0x20ACU; // euro sign
    case 0xA6U:
        return 0x0160U; // S with caron
    case 0xA8U:
        return 0x0161U; // s with caron
    case 0xB4U:
        return 0x017DU; // Z with caron
    case 0xB8U:
        return 0x017EU; // z with caron
    case 0xBCU:
        return 0x0152U; // ligature OE
    case 0xBDU:
        return 0x0153U; // ligature oe
    case 0xBEU:
        return 0x0178U; // Y with diaeresis
    default:
        return byte;
    }
}

constexpr SKoConvTable::SEntry encoded(unsigned int codePoint)
{
    const auto next = [](unsigned int bits) { return static_cast<unsigned char>(0x80U | (bits & 0x3FU)); };
    if (codePoint < 0x80U)
    {
        return {1U, {static_cast<unsigned char>(codePoint), 0U, 0U}};
    }
    if (codePoint < 0x800U)
    {
        return {2U, {static_cast<unsigned char>(0xC0U | codePoint >> 6U), next(codePoint), 0U}};
    }
    return {3U,
            {static_cast<unsigned char>(0xE0U | codePoint >> 12U), next(codePoint >> 6U), next(codePoint)}};
}

constexpr SKoConvTable forwardTable(unsigned int (&codePointOf)(unsigned int))
{
    SKoConvTable table = {};
    for (unsigned int byte = 0; byte != 256U; ++byte)
    {
        table.entries[byte] = encoded(codePointOf(byte));
    }
    return table;
}

/// The bytes in the order of their code points, which is the order of their sequences and of the lengths of
/// these.
constexpr SKoReverseConvTable reverseTable(unsigned int (&codePointOf)(unsigned int))
{
    SKoReverseConvTable table = {ASCII_COUNT - 1U, 0U, {}};
    for (unsigned int byte = 0; byte != 256U; ++byte)
    {
        unsigned int place = byte;
        for (; place != 0U && codePointOf(table.entries[place - 1U].target) > codePointOf(byte); --place)
        {
            table.entries[place] = table.entries[place - 1U];
        }
        const SKoConvTable::SEntry entry = encoded(codePointOf(byte));
        table.entries[place] = {{entry.utf8[0], entry.utf8[1], entry.utf8[2]},
                                static_cast<unsigned char>(byte)};
        table.lastTwoByteIndex =
            static_cast<unsigned char>(table.lastTwoByteIndex + (entry.length < 3U ? 1U : 0U));
    }
    --table.lastTwoByteIndex;
    return table;
}

namespace From8859_1
{
constexpr SKoConvTable convTable = forwardTable(codePointOf8859_1);
}

namespace From8859_15
{
constexpr SKoConvTable convTable = forwardTable(codePointOf8859_15);
}

namespace To8859_1
{
constexpr SKoReverseConvTable convTable = reverseTable(codePointOf8859_1);
static_assert(convTable.lastTwoByteIndex == 255U && convTable.entries[255].target == 0xFFU, "no gap");
} // namespace To8859_1

namespace To8859_15
{
constexpr SKoReverseConvTable convTable = reverseTable(codePointOf8859_15);
static_assert(convTable.lastTwoByteIndex == 254U && convTable.entries[255].target == 0xA4U,
              "the euro sign is last");
} // namespace To8859_15

#if KO_HAS_BYTE_VECTOR
constexpr unsigned int PIECE = KoPrivate::VECTOR_SIZE;
#else
constexpr unsigned int PIECE = 8U;
#endif

/// The bytes ahead, at most a piece, that are ASCII and not zero.
unsigned int plainAhead(const char* text, unsigned int count)
{
#if KO_HAS_BYTE_VECTOR
    if (count >= PIECE)
    {
        const KoPrivate::ByteVector bytes = KoPrivate::loadVector(text);
        // One less turns only zeros and what has its top bit already into bytes with a top bit, or clears 80.
        const unsigned int odd = KoPrivate::topBits(bytes | (bytes - KoPrivate::spread(1U)));
        return odd == 0U ? PIECE : static_cast<unsigned int>(__builtin_ctz(odd));
    }
#endif
    const unsigned int most = std::min(count, PIECE);
    unsigned int at = 0;
    while (at != most && text[at] != '\0' && static_cast<unsigned char>(text[at]) < ASCII_COUNT)
    {
        ++at;
    }
    return at;
}

/// The bytes beyond ASCII.
unsigned int countHigh(const char* text, unsigned int count)
{
    unsigned int high = 0;
    unsigned int at = 0;
    for (; count - at >= sizeof(std::uint64_t); at += sizeof(std::uint64_t))
    {
        // The product gathers all eight bits in its top byte.
        const std::uint64_t tops = (KoPrivate::loadWord(text + at) & KoPrivate::TOP_BITS) >> 7U;
        high += static_cast<unsigned int>(tops * 0x0101010101010101U >> 56U);
    }
    for (; at != count; ++at)
    {
        high += static_cast<unsigned char>(text[at]) >> 7U;
    }
    return high;
}

/// Copies what is ahead and plain. Whole pieces are quicker to copy; what is too much is written over later.
void copyPlain(char* target, const char* source, unsigned int plain, bool isRoomForPiece)
{
    if (isRoomForPiece)
    {
        std::memcpy(target, source, PIECE);
    }
    else if (plain != 0U)
    {
        KoPrivate::copyShort(target, source, plain);
    }
}

// --- To UTF-8 ---------------------------------------------------------------------------------------------

/// Converts from one table. What ASCII becomes is asked once; short texts are not worth the question.
class CToUtf8
{
public:
    CToUtf8(const SKoConvTable& table, const char* text, unsigned int count)
        : m_table(table)
        , m_text(text)
        , m_count(count)
        , m_keepsAscii(count >= ASCII_COUNT && keepsAscii(table))
    {
    }

    unsigned long long measure() const
    {
        unsigned long long bytes = 0;
        const unsigned int high = m_keepsAscii ? highLength() : 0U;
        if (high != 0U)
        {
            return m_count + 1ULL * countHigh(m_text, m_count) * (high - 1U);
        }
        for (unsigned int at = 0; at != m_count;)
        {
            const unsigned int plain = plainAt(at);
            at += plain;
            bytes += plain;
            if (plain != PIECE && at != m_count)
            {
                bytes += lengthOf(entryOf(m_text[at]));
                ++at;
            }
        }
        return bytes;
    }

    /// \param room bytes that fit; at least what measure gives.
    SUtf8Span write(char* target, unsigned int room) const
    {
        SUtf8Span done = {0U, 0U};
        for (unsigned int at = 0; at != m_count;)
        {
            const unsigned int plain = plainAt(at);
            const bool isRoomForPiece = m_count - at >= PIECE && room - done.byteLength >= PIECE;
            copyPlain(target + done.byteLength, m_text + at, plain, isRoomForPiece);
            at += plain;
            done.byteLength += plain;
            done.charCount += plain;
            if (plain != PIECE && at != m_count)
            {
                append(target, entryOf(m_text[at]), done);
                ++at;
            }
        }
        return done;
    }

private:
    static bool keepsAscii(const SKoConvTable& table)
    {
        unsigned int kept = 0;
        while (kept != ASCII_COUNT && table.entries[kept].length == 1U && table.entries[kept].utf8[0] == kept)
        {
            ++kept;
        }
        return kept == ASCII_COUNT;
    }

    /// The length that all bytes beyond ASCII have in common, or 0.
    unsigned int highLength() const
    {
        const unsigned int length = lengthOf(m_table.entries[ASCII_COUNT]);
        const auto isOther = [&](const SKoConvTable::SEntry& entry) { return lengthOf(entry) != length; };
        const SKoConvTable::SEntry* const end = m_table.entries + 256;
        return KoAlgorithm::find_if(m_table.entries + ASCII_COUNT, end, isOther) == end ? length : 0U;
    }

    static unsigned int lengthOf(const SKoConvTable::SEntry& entry)
    {
        return std::min<unsigned int>(entry.length, sizeof(entry.utf8));
    }

    /// Appends what a byte becomes; an entry that begins with a zero stands for nothing.
    static void append(char* target, const SKoConvTable::SEntry& entry, SUtf8Span& done)
    {
        const unsigned int length = lengthOf(entry);
        const char* const bytes = reinterpret_cast<const char*>(entry.utf8);
        if (length == 0U || *bytes == '\0')
        {
            return;
        }
        for (unsigned int i = 0; i != length; ++i)
        {
            target[done.byteLength + i] = bytes[i];
        }
        done.byteLength += length;
        const bool isOne = KoPrivate::sequenceLength(*bytes) == length;
        done.charCount += isOne ? 1U : KoPrivate::countSequences(bytes, length);
    }

    const SKoConvTable::SEntry& entryOf(char byte) const
    {
        return m_table.entries[static_cast<unsigned char>(byte)];
    }
    unsigned int plainAt(unsigned int at) const
    {
        return m_keepsAscii ? plainAhead(m_text + at, m_count - at) : 0U;
    }

    const SKoConvTable& m_table;
    const char* const m_text;
    const unsigned int m_count;
    const bool m_keepsAscii;
};

// --- From UTF-8 -------------------------------------------------------------------------------------------

/// Looks up what characters become.
class CFromUtf8
{
public:
    CFromUtf8(const SKoReverseConvTable& table, char replacement)
        : m_table(table)
        , m_replacement(replacement)
    {
    }

    bool keepsAscii() const
    {
        unsigned int kept = 0;
        while (kept != ASCII_COUNT && m_table.entries[kept].target == kept)
        {
            ++kept;
        }
        return kept == ASCII_COUNT;
    }

    /// \param character a whole sequence of that many bytes.
    char look(const char* character, unsigned int length)
    {
        const unsigned char lead = static_cast<unsigned char>(*character);
        if (lead < ASCII_COUNT)
        {
            return static_cast<char>(m_table.entries[lead].target);
        }
        return length == 2U ? lookTwoBytes(lead, static_cast<unsigned char>(character[1]))
                            : lookThreeBytes(character, length);
    }

private:
    using SEntry = SKoReverseConvTable::SEntry;

    char lookTwoBytes(unsigned char lead, unsigned char second)
    {
        if (lead != m_lead)
        {
            findGroup(lead);
        }
        // Most groups have no gaps.
        const SEntry* const group = m_table.entries + m_first;
        const int guess = m_count == 0 ? 0 : second - group->utf8[1];
        if (guess >= 0 && guess < m_count && group[guess].utf8[1] == second)
        {
            return static_cast<char>(group[guess].target);
        }
        const auto isBefore = [](const SEntry& entry, unsigned char value) { return entry.utf8[1] < value; };
        const int index = KoAlgorithm::lowerBound(group, m_count, second, isBefore);
        const bool isThere = index != m_count && group[index].utf8[1] == second;
        return isThere ? static_cast<char>(group[index].target) : m_replacement;
    }

    /// The entries of two bytes with one first byte.
    void findGroup(unsigned char lead)
    {
        const auto isBefore = [](const SEntry& entry, unsigned char value) { return entry.utf8[0] < value; };
        const auto isBehind = [](unsigned char value, const SEntry& entry) { return value < entry.utf8[0]; };
        const int start = m_table.lastOneByteIndex + 1;
        const int count = std::max(m_table.lastTwoByteIndex + 1 - start, 0);
        const SEntry* const entries = m_table.entries + start;
        const int first = KoAlgorithm::lowerBound(entries, count, lead, isBefore);
        m_lead = lead;
        m_first = start + first;
        m_count = KoAlgorithm::upperBound(entries, count, lead, isBehind) - first;
    }

    char lookThreeBytes(const char* character, unsigned int length) const
    {
        const SEntry* const end = m_table.entries + 256;
        const SEntry* const found = KoAlgorithm::find_if(
            m_table.entries + m_table.lastTwoByteIndex + 1, end,
            [&](const SEntry& entry)
            { return length >= 3U && std::memcmp(entry.utf8, character, sizeof(entry.utf8)) == 0; });
        return found == end ? m_replacement : static_cast<char>(found->target);
    }

    const SKoReverseConvTable& m_table;
    const char m_replacement;
    unsigned char m_lead = 0; ///< whose group is known; none for 0
    int m_first = 0;
    int m_count = 0;
};

constexpr unsigned int LONGEST_CHARACTER = 6U;

/// The bytes of the character ahead; of one that is cut off or leads nothing, 1 that no table has.
unsigned int characterAhead(const char* text, unsigned int count)
{
    const unsigned int length = KoPrivate::sequenceLength(*text);
    return length != 0U && length <= count ? length : 1U;
}

/// Writes at most `size` bytes. \return the bytes written.
unsigned int convertCharacters(CFromUtf8& lookup, const CKoString& text, char* buffer, unsigned int size)
{
    const char* const bytes = text.c_str();
    const unsigned int count = text.byteLength();
    const bool keepsAscii = count >= ASCII_COUNT && lookup.keepsAscii();
    unsigned int written = 0;
    for (unsigned int at = 0; at != count && written != size;)
    {
        const unsigned int plain =
            keepsAscii ? std::min(plainAhead(bytes + at, count - at), size - written) : 0U;
        // So many characters follow that nothing of a whole piece stays behind the result.
        const bool isRoomForPiece = count - at >= LONGEST_CHARACTER * PIECE && size - written >= PIECE;
        copyPlain(buffer + written, bytes + at, plain, keepsAscii && isRoomForPiece);
        at += plain;
        written += plain;
        if (plain != PIECE && at != count && written != size)
        {
            const unsigned int length = characterAhead(bytes + at, count - at);
            buffer[written] = lookup.look(bytes + at, length);
            ++written;
            at += length;
        }
    }
    return written;
}

} // namespace

CKoString KoConvertFrom8859_1(const char* text, unsigned int count)
{
    return convertStringToUTF8(&From8859_1::convTable, text, count);
}

CKoString KoConvertFrom8859_15(const char* text, unsigned int count)
{
    return convertStringToUTF8(&From8859_15::convTable, text, count);
}

int KoConvertTo8859_1(const CKoString& text, char* buffer, unsigned int size, char replacement)
{
    return convertUTF8ToString(To8859_1::convTable, text, buffer, size, replacement);
}

int KoConvertTo8859_15(const CKoString& text, char* buffer, unsigned int size, char replacement)
{
    return convertUTF8ToString(To8859_15::convTable, text, buffer, size, replacement);
}

CKoString convertStringToUTF8(const SKoConvTable* table, const char* text, unsigned int count)
{
    if (count == 0U)
    {
        return CKoString(0U);
    }
    if (table == nullptr || text == nullptr)
    {
        doCheapAssert(__LINE__, "KoCharsetConversion");
        return CKoString();
    }
    const CToUtf8 conversion(*table, text, count);
    const unsigned long long bytes = std::min<unsigned long long>(conversion.measure(), UINT_MAX);
    CKoString converted(static_cast<unsigned int>(bytes));
    if (converted.capacity() == bytes)
    {
        char* const target = CKoStringFiller::text(converted);
        const SUtf8Span written = conversion.write(target, converted.capacity());
        CKoStringFiller::setLength(converted, written.byteLength, written.charCount);
    }
    return converted;
}

int convertUTF8ToString(const SKoReverseConvTable& table, const CKoString& text, char* buffer,
                        unsigned int size, char replacement)
{
    if (size == 0U || buffer == nullptr)
    {
        return 0;
    }
    if (text.isEmpty())
    {
        buffer[0] = '\0';
        return 0;
    }
    const unsigned int room = std::min<unsigned int>(size, INT_MAX);
    CFromUtf8 lookup(table, replacement);
    const unsigned int written = convertCharacters(lookup, text, buffer, room);
    buffer[std::min(written, room - 1U)] = '\0';
    return static_cast<int>(written);
}
