#pragma once

#include "pf/base/CKoString.h"
#include "pf/base/KoStringUtilities.h"
#include "pf/base/KoUtf8.h"

namespace KoPrivate
{

using KoStringUtilities::SKoCaseMappingTable;

/// A replacement as the table holds it.
struct SFound
{
    unsigned int single; ///< the only character, when there are no units
    unsigned int count;  ///< units of a special mapping, else 1
    const unsigned short* units16;
    const unsigned int* units32;
};

/// How a table maps ASCII, when it does so by adding one number to one run of letters.
struct SAsciiRule
{
    /// The rule of a table; unknown when the table maps ASCII in any other way.
    static SAsciiRule of(const SKoCaseMappingTable& table);

    bool isKnown;
    unsigned char first;
    unsigned char count;
    unsigned char offset; ///< modulo 256

    bool maps(char byte) const
    {
        return static_cast<unsigned char>(static_cast<unsigned char>(byte) - first) < count;
    }

    char map(char byte) const
    {
        const unsigned int added = maps(byte) ? offset : 0U;
        return static_cast<char>(static_cast<unsigned char>(byte) + added);
    }
};

/// One character of the source, and what it becomes.
struct SStep
{
    unsigned int span; ///< bytes in the source, up to the next character
    const char* bytes; ///< the replacement, or the character itself when it is not mapped
    unsigned int byteLength;
    unsigned int charCount;
};

/// Looks characters up. A text has few different ones: those that keep their size are remembered.
class CCaseLookup
{
public:
    /// Two or three bytes, the first one lowest, and as many that they become. The top byte of `to` counts
    /// the characters beyond one.
    struct SEntry
    {
        unsigned int byteLength() const { return from > 0xFFFFU ? 3U : 2U; }

        unsigned int from;
        unsigned int to;
    };

    explicit CCaseLookup(const SKoCaseMappingTable& table)
        : m_table(table)
        , m_ascii(SAsciiRule::of(table))
    {
    }

    const SAsciiRule& ascii() const { return m_ascii; }

    /// What is remembered of a character that is not ASCII, or null.
    const SEntry* recall(const char* at) const
    {
        if (isTwoByteLead(*at))
        {
            const SEntry& entry = m_entries[indexOf(at[0], at[1])];
            return entry.from == keyOf(at, 2U) && !isContinuation(at[2]) ? &entry : nullptr;
        }
        if (!isThreeByteLead(*at) || !isContinuation(at[1]))
        {
            return nullptr;
        }
        const SEntry& entry = m_entries[indexOf(at[1], at[2])];
        return entry.from == keyOf(at, 3U) && !isContinuation(at[3]) ? &entry : nullptr;
    }

    /// Looks a character up in the table. The replacement is valid up to the next look-up.
    SStep look(const char* at);

private:
    static constexpr unsigned int ENTRIES = 128U;

    static bool isTwoByteLead(char byte) { return (static_cast<unsigned char>(byte) & 0xE0U) == 0xC0U; }
    static bool isThreeByteLead(char byte) { return (static_cast<unsigned char>(byte) & 0xF0U) == 0xE0U; }

    /// By the last two bytes: different for all characters of a small alphabet.
    static unsigned int indexOf(char before, char last)
    {
        return (static_cast<unsigned char>(before) & 1U) << 6U | (static_cast<unsigned char>(last) & 0x3FU);
    }

    static unsigned int keyOf(const char* bytes, unsigned int count)
    {
        const unsigned int two = static_cast<unsigned char>(bytes[0]) |
                                 static_cast<unsigned int>(static_cast<unsigned char>(bytes[1])) << 8U;
        return count == 2U ? two
                           : two | static_cast<unsigned int>(static_cast<unsigned char>(bytes[2])) << 16U;
    }

    void encode(const SFound& found);
    void remember(const char* at, const SStep& step);

    const SKoCaseMappingTable& m_table;
    const SAsciiRule m_ascii;
    CKoString m_work;
    SEntry m_entries[ENTRIES] = {};
};

} // namespace KoPrivate
