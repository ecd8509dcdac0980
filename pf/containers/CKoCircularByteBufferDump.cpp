#include "pf/containers/CKoCircularByteBuffer.h"

#include "pf/oswrapper/KoSyslog.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>

namespace
{

// Columns of a dump line.
constexpr unsigned int BYTES_PER_LINE = 16;
constexpr unsigned int HEX_COLUMN = 10;
constexpr unsigned int TEXT_COLUMN = HEX_COLUMN + 3 * BYTES_PER_LINE + 2;
constexpr unsigned int LINE_LENGTH = TEXT_COLUMN + BYTES_PER_LINE;

void putHexadecimal(char* line, unsigned char byte)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    line[0] = DIGITS[byte >> 4U];
    line[1] = DIGITS[byte & 15U];
}

/// Control characters, and bytes that are not ASCII, are shown as a dot.
char shown(unsigned char byte)
{
    return static_cast<signed char>(byte) < 32 ? '.' : static_cast<char>(byte);
}

/// A line of the explanation, and whether it is logged and printed.
struct SExplanation
{
    bool isLogged;
    bool isPrinted;
    const char* text;
};

} // namespace

void CKoCircularByteBuffer::explainError() const
{
    const bool beginIsLow = std::less<>()(m_logicBegin, m_physBegin);
    const bool beginIsAtEnd = std::greater_equal<>()(m_logicBegin, m_physEnd);
    const bool beginIsHigh = std::greater<>()(m_logicBegin, m_physEnd);
    const bool endIsLow = std::less<>()(m_logicEnd, m_physBegin);
    const bool endIsHigh = std::greater<>()(m_logicEnd, m_physEnd);
    const bool isWithoutStorage = m_physBegin == m_physEnd;
    const SExplanation explanations[] = {
        {m_physBegin == nullptr, m_physBegin == nullptr,
         "[CKoCircularByteBuffer::explainError] m_physBegin is null"},
        {m_physEnd == nullptr, m_physEnd == nullptr,
         "[CKoCircularByteBuffer::explainError] m_physEnd is null"},
        {m_logicBegin == nullptr, m_logicBegin == nullptr,
         "[CKoCircularByteBuffer::explainError] m_logicBegin is null"},
        {m_logicEnd == nullptr, m_logicEnd == nullptr,
         "[CKoCircularByteBuffer::explainError] m_logicEnd is null"},
        {beginIsLow, beginIsLow, "[CKoCircularByteBuffer::explainError] m_logicBegin <  m_physBegin"},
        {beginIsAtEnd, beginIsHigh, "[CKoCircularByteBuffer::explainError] m_logicBegin >=  m_physEnd"},
        {endIsLow, endIsLow, "[CKoCircularByteBuffer::explainError] m_logicEnd <  m_physBegin"},
        {endIsHigh, endIsHigh, "[CKoCircularByteBuffer::explainError] m_logicEnd >  m_physEnd"},
        {isWithoutStorage, isWithoutStorage,
         "[CKoCircularByteBuffer::explainError] m_physBegin == m_physEnd"},
    };
    for (const SExplanation& explanation : explanations)
    {
        if (explanation.isLogged)
        {
            KoSyslog::logMsg(0, KoSyslog::Error, "%s", explanation.text);
        }
    }
    std::puts("[CKoCircularByteBuffer::explainError] error occured:");
    for (const SExplanation& explanation : explanations)
    {
        if (explanation.isPrinted)
        {
            std::puts(explanation.text);
        }
    }
}

CKoString CKoCircularByteBuffer::dumpString() const
{
    char buffer[384]; // what the format needs for the longest numbers and pointers
    CKoString text;
    const auto* const begin = static_cast<const void*>(m_logicBegin);
    const auto* const end = static_cast<const void*>(m_logicEnd);
    text.strprintf(buffer, sizeof(buffer),
                   "CKoCircularByteBuffer: size = %d, free size = %d\n"
                   "phys  begin = 0x%p, phys  end = 0x%p\n"
                   "logic begin = 0x%p, logic end = 0x%p\n"
                   "logic rel begin = %d, logic rel end = %d\n",
                   static_cast<int>(size()), static_cast<int>(getFreeSize()),
                   static_cast<const void*>(m_physBegin), static_cast<const void*>(m_physEnd), begin, end,
                   static_cast<int>(offsetOf(m_logicBegin)), static_cast<int>(offsetOf(m_logicEnd)));
    if (isInvalid())
    {
        return text;
    }
    const unsigned int last = held();
    text.reserve(text.byteLength() + (last / BYTES_PER_LINE + 1U) * (LINE_LENGTH + 1U));
    for (unsigned int offset = 0; offset < last; offset += BYTES_PER_LINE)
    {
        text.append(dumpLine(offset)).append("\n");
    }
    return text;
}

CKoString CKoCircularByteBuffer::dumpLine(unsigned int offset) const
{
    const unsigned int available = size();
    if (isInvalid() || offset > available)
    {
        return EMPTY_STRING;
    }
    unsigned char bytes[BYTES_PER_LINE];
    const unsigned int count = std::min(available - offset, BYTES_PER_LINE);
    peek(offset, bytes, count);

    char number[24];
    std::snprintf(number, sizeof(number), "%X:           ", offset);
    char line[LINE_LENGTH];
    std::memset(line, ' ', sizeof(line));
    std::memcpy(line, number, HEX_COLUMN);
    for (std::size_t i = 0; i < count; ++i)
    {
        putHexadecimal(line + HEX_COLUMN + 3U * i, bytes[i]);
        line[TEXT_COLUMN + i] = shown(bytes[i]);
    }
    return CKoString(line, sizeof(line));
}
