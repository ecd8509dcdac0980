#include "pf/base/CKoStringFiller.h"
#include "pf/base/KoByteVector.h"
#include "pf/base/KoCaseLookup.h"
#include "pf/base/KoStringUtilities.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace KoStringUtilities
{

namespace
{

using namespace KoPrivate;

bool isAscii(char byte)
{
    return static_cast<unsigned char>(byte) < 0x80U;
}

/// Goes over bytes of ASCII that a rule leaves alone. \return the first that it maps, or that is not ASCII.
const char* passUnmappedAscii(const SAsciiRule& rule, const char* at, const char* end)
{
#if KO_HAS_BYTE_VECTOR
    for (; end - at >= static_cast<std::ptrdiff_t>(VECTOR_SIZE); at += VECTOR_SIZE)
    {
        const ByteVector bytes = loadVector(at);
        const auto mapped = reinterpret_cast<ByteVector>((bytes - spread(rule.first)) < spread(rule.count));
        if (hasTopBit(bytes | mapped))
        {
            break;
        }
    }
#endif
    while (at != end && isAscii(*at) && !rule.maps(*at))
    {
        ++at;
    }
    return at;
}

/// Maps bytes of ASCII up to one that is not. The target may be the source; it has room for all of it.
/// \return the bytes mapped.
std::size_t mapAscii(const SAsciiRule& rule, char* target, const char* source, std::size_t count)
{
    std::size_t at = 0;
#if KO_HAS_BYTE_VECTOR
    constexpr std::size_t PIECE = std::size_t{2} * VECTOR_SIZE;
    for (; count - at >= PIECE; at += PIECE)
    {
        ByteVector bytes[2];
        std::memcpy(bytes, source + at, PIECE);
        if (hasTopBit(bytes[0] | bytes[1]))
        {
            break;
        }
        for (ByteVector& half : bytes)
        {
            const auto mapped = (half - spread(rule.first)) < spread(rule.count);
            half += reinterpret_cast<ByteVector>(mapped) & spread(rule.offset);
        }
        std::memcpy(target + at, bytes, PIECE);
    }
#endif
    for (; at != count && isAscii(source[at]); ++at)
    {
        target[at] = rule.map(source[at]);
    }
    return at;
}

/// \return the first character that is mapped, or the end.
const char* passUnmapped(CCaseLookup& lookup, const char* at, const char* end)
{
    for (;;)
    {
        if (lookup.ascii().isKnown)
        {
            at = passUnmappedAscii(lookup.ascii(), at, end);
        }
        if (at == end)
        {
            return at;
        }
        const CCaseLookup::SEntry* const entry = lookup.recall(at);
        if (entry != nullptr && entry->from == entry->to)
        {
            at += entry->byteLength();
            continue;
        }
        const SStep step = lookup.look(at);
        if (step.bytes != at)
        {
            return at;
        }
        at += step.span;
    }
}

/// The mapping of one text. As long as no character changes its size, a text that is not shared is mapped
/// where it lies; any other goes into a block of its own, which takes the place of the first at the end.
class CCaseMapping
{
public:
    /// \param end where characters end to be mapped. `start` is the first that is.
    CCaseMapping(CCaseLookup& lookup, CKoString& text, const char* start, const char* end)
        : m_lookup(lookup)
        , m_text(text)
        , m_in(start)
        , m_end(end)
        , m_stop(text.c_str() + text.byteLength())
        , m_isInPlace(!CKoStringFiller::isShared(text))
        , m_characters(text.length())
    {
        if (m_isInPlace)
        {
            m_out = CKoStringFiller::text(text) + (start - text.c_str());
        }
    }

    void run()
    {
        if (!m_isInPlace && !moveOut(rest()))
        {
            return;
        }
        while (m_in != m_end)
        {
            mapCommon();
            if (m_in != m_end && !mapNext())
            {
                break;
            }
        }
        finish();
    }

private:
    unsigned int rest() const { return static_cast<unsigned int>(m_stop - m_in); }

    CKoString& target() { return m_isInPlace ? m_text : m_result; }
    unsigned int written() const
    {
        return static_cast<unsigned int>(m_out - (m_isInPlace ? m_text : m_result).c_str());
    }

    /// Maps ASCII by its rule and the characters that are remembered, up to one that is neither. Keeps its
    /// place in variables of its own, which bytes that are written cannot be.
    void mapCommon()
    {
        const SAsciiRule rule = m_lookup.ascii();
        const char* in = m_in;
        char* out = m_out;
        while (in != m_end)
        {
            if (isAscii(*in))
            {
                const std::size_t count = mapAsciiAt(rule, out, in);
                if (count == 0U)
                {
                    break;
                }
                in += count;
                out += count;
                continue;
            }
            const CCaseLookup::SEntry* const entry = m_lookup.recall(in);
            if (entry == nullptr)
            {
                break;
            }
            const unsigned int size = putRemembered(out, *entry);
            in += size;
            out += size;
        }
        m_in = in;
        m_out = out;
    }

    /// Maps ASCII from a byte on that is. \return the bytes mapped, none when there is no rule.
    std::size_t mapAsciiAt(const SAsciiRule& rule, char* out, const char* in) const
    {
        if (!rule.isKnown)
        {
            return 0U;
        }
        // The blank between two words of another script.
        if (!isAscii(in[1]))
        {
            *out = rule.map(*in);
            return 1U;
        }
        return mapAscii(rule, out, in, static_cast<std::size_t>(m_end - in));
    }

    unsigned int putRemembered(char* out, const CCaseLookup::SEntry& entry)
    {
        const unsigned int to = entry.to;
        const unsigned int size = entry.byteLength();
        m_characters += to >> 24U;
        out[0] = static_cast<char>(to);
        out[1] = static_cast<char>(to >> 8U);
        if (size == 3U)
        {
            out[2] = static_cast<char>(to >> 16U);
        }
        return size;
    }

    /// \return false when the text becomes longer than any can be, which is reported.
    bool mapNext()
    {
        const SStep step = m_lookup.look(m_in);
        if (!hasRoom(step))
        {
            return moveOut(measure());
        }
        std::memmove(m_out, step.bytes, step.byteLength);
        m_out += step.byteLength;
        m_in += step.span;
        m_characters += step.charCount - 1U;
        return true;
    }

    /// True when the step leaves room for the rest of the source.
    bool hasRoom(const SStep& step) const
    {
        if (step.byteLength == step.span)
        {
            return true;
        }
        const unsigned long long needed = 0ULL + written() + step.byteLength + rest() - step.span;
        return !m_isInPlace && needed <= m_result.capacity();
    }

    /// The bytes that the rest needs: those mapped and those still to be mapped at their most.
    unsigned long long measure()
    {
        unsigned long long mapped = 0;
        unsigned long long most = rest();
        for (const char* at = m_in; at != m_end;)
        {
            const SStep step = m_lookup.look(at);
            at += step.span;
            mapped += step.byteLength;
            most = std::max(most, mapped + static_cast<unsigned long long>(m_stop - at));
        }
        return most;
    }

    /// Goes on in a new block with room for so many bytes behind what has been written.
    bool moveOut(unsigned long long bytes)
    {
        const bool isFirst = m_out == nullptr;
        const char* const done = isFirst ? m_text.c_str() : target().c_str();
        const std::size_t doneBytes = isFirst ? static_cast<std::size_t>(m_in - done) : written();
        const unsigned long long least = m_isInPlace ? m_text.capacity() : 0U;
        CKoString moved;
        if (!CKoStringFiller::makePrivate(moved, std::max(least, doneBytes + bytes)))
        {
            return false;
        }
        char* const text = CKoStringFiller::text(moved);
        std::memcpy(text, done, doneBytes);
        m_out = text + doneBytes;
        m_result = std::move(moved);
        m_isInPlace = false;
        return true;
    }

    void finish()
    {
        const unsigned int unmapped = rest();
        std::memmove(m_out, m_in, unmapped);
        CKoStringFiller::setLength(target(), written() + unmapped, m_characters);
        if (!m_isInPlace)
        {
            m_text = std::move(m_result);
        }
    }

    CCaseLookup& m_lookup;
    CKoString& m_text;
    CKoString m_result;
    const char* m_in;
    const char* const m_end;
    const char* const m_stop; ///< the end of the text, beyond a zero byte in it
    char* m_out = nullptr;
    bool m_isInPlace;
    unsigned int m_characters; ///< of the text, as far as it is mapped
};

/// The end of the characters that a text counts, or the zero byte before. Malformed text may have more steps
/// than characters; what is behind these is not mapped.
const char* endOfCharacters(const CKoString& text)
{
    const char* const first = text.c_str();
    const char* const end = first + strnlen(first, text.byteLength());
    const unsigned int characters = text.length();
    if (characters == text.byteLength() || countSteps(first, end) <= characters)
    {
        return end;
    }
    const char* last = first;
    stepForward(last, characters);
    return last;
}

} // namespace

void doCaseMapping(CKoString& text, const SKoCaseMappingTable& table)
{
    CCaseLookup lookup(table);
    const char* const end = endOfCharacters(text);
    const char* const start = passUnmapped(lookup, text.c_str(), end);
    if (start != end)
    {
        CCaseMapping(lookup, text, start, end).run();
    }
}

} // namespace KoStringUtilities
