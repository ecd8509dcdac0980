#include "pf/base/KoByteSearch.h"

#include "pf/base/KoByteVector.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace KoPrivate
{

namespace
{

/// Bytes in reading order, or from their end when they are searched backward.
template <bool IsReversed>
struct SView
{
    const char* bytes;
    std::ptrdiff_t size;

    unsigned char operator[](std::ptrdiff_t index) const
    {
        return static_cast<unsigned char>(bytes[IsReversed ? size - 1 - index : index]);
    }
};

/// Where the pattern is cut for the two-way search: after index `last`, with this period behind it.
struct SCut
{
    std::ptrdiff_t last;
    std::ptrdiff_t period;
};

/// The largest suffix of the pattern under the order of bytes, or under its reverse.
template <typename View>
SCut largestSuffix(const View& pattern, bool isReverseOrder)
{
    SCut cut = {-1, 1};
    std::ptrdiff_t candidate = 0;
    std::ptrdiff_t matched = 1;
    while (candidate + matched < pattern.size)
    {
        const unsigned char a = pattern[candidate + matched];
        const unsigned char b = pattern[cut.last + matched];
        if (a == b)
        {
            const bool isPeriodDone = matched == cut.period;
            candidate += isPeriodDone ? cut.period : 0;
            matched = isPeriodDone ? 1 : matched + 1;
        }
        else if (isReverseOrder ? a > b : a < b)
        {
            candidate += matched;
            matched = 1;
            cut.period = candidate - cut.last;
        }
        else
        {
            cut.last = candidate;
            ++candidate;
            matched = 1;
            cut.period = 1;
        }
    }
    return cut;
}

template <typename View>
bool isPeriodic(const View& pattern, const SCut& cut)
{
    for (std::ptrdiff_t i = 0; i <= cut.last; ++i)
    {
        if (i + cut.period >= pattern.size || pattern[i] != pattern[i + cut.period])
        {
            return false;
        }
    }
    return true;
}

/// The two-way search: compares the part behind the cut forward, then the part before it backward, and never
/// reads a byte of the text more than twice. \return index of the first match, or -1.
template <typename View>
std::ptrdiff_t searchTwoWay(const View& text, const View& pattern)
{
    const SCut up = largestSuffix(pattern, false);
    const SCut down = largestSuffix(pattern, true);
    SCut cut = up.last > down.last ? up : down;
    const bool periodic = isPeriodic(pattern, cut);
    if (!periodic)
    {
        cut.period = std::max(cut.last + 1, pattern.size - cut.last - 1) + 1;
    }

    std::ptrdiff_t known = -1; // the last index of the pattern's start that is known to match here
    std::ptrdiff_t at = 0;
    while (at <= text.size - pattern.size)
    {
        std::ptrdiff_t i = std::max(cut.last, known) + 1;
        while (i < pattern.size && pattern[i] == text[at + i])
        {
            ++i;
        }
        if (i < pattern.size)
        {
            at += i - cut.last;
            known = -1;
            continue;
        }
        i = cut.last;
        while (i > known && pattern[i] == text[at + i])
        {
            --i;
        }
        if (i <= known)
        {
            return at;
        }
        at += cut.period;
        known = periodic ? pattern.size - cut.period - 1 : -1;
    }
    return -1;
}

/// A forward search in progress.
struct SSearch
{
    const char* pattern;
    std::size_t patternLength;
    std::size_t filter[2]; ///< offsets in the pattern of the two bytes that candidates are filtered by
    std::size_t wasted;    ///< bytes compared at candidates that were none

    /// Compares the whole pattern. A mismatch moves the filter to the byte that told the difference, which is
    /// what gets texts of repeated prefixes out of the way.
    bool isMatch(const char* candidate)
    {
        std::size_t i = 0;
        while (i != patternLength && candidate[i] == pattern[i])
        {
            ++i;
        }
        if (i == patternLength)
        {
            return true;
        }
        wasted += i + 1U;
        filter[0] = filter[1];
        filter[1] = i;
        return false;
    }

    /// True when filtering has stopped to pay, `passed` bytes into the text.
    bool isHopeless(std::size_t passed) const { return wasted > 512U + 2U * passed; }
};

const char* finishTwoWay(const SSearch& search, const char* text, const char* end)
{
    const SView<false> rest = {text, end - text};
    const SView<false> pattern = {search.pattern, static_cast<std::ptrdiff_t>(search.patternLength)};
    const std::ptrdiff_t found = searchTwoWay(rest, pattern);
    return found < 0 ? nullptr : text + found;
}

#if KO_HAS_BYTE_VECTOR

/// Sixteen positions at a time: where both bytes of the filter stand.
class CFilter
{
public:
    explicit CFilter(const SSearch& search)
        : m_firstOffset(search.filter[0])
        , m_secondOffset(search.filter[1])
        , m_first(spread(static_cast<unsigned char>(search.pattern[m_firstOffset])))
        , m_second(spread(static_cast<unsigned char>(search.pattern[m_secondOffset])))
    {
    }

    ByteVector apply(const char* at) const
    {
        return reinterpret_cast<ByteVector>((loadVector(at + m_firstOffset) == m_first) &
                                            (loadVector(at + m_secondOffset) == m_second));
    }

private:
    std::size_t m_firstOffset;
    std::size_t m_secondOffset;
    ByteVector m_first;
    ByteVector m_second;
};

/// \param candidates one bit for each position from `at` on that is worth comparing.
const char* tryCandidates(SSearch& search, const char* at, std::uint64_t candidates)
{
    for (; candidates != 0U; candidates &= candidates - 1U)
    {
        const char* const candidate = at + __builtin_ctzll(candidates);
        if (search.isMatch(candidate))
        {
            return candidate;
        }
    }
    return nullptr;
}

/// The last positions, fewer than a group but at least one vector's, of which some may have been tried
/// already.
const char* findInRest(SSearch& search, const char* at, const char* lastStart)
{
    const CFilter filter(search);
    const char* const lastVector = lastStart - (VECTOR_SIZE - 1U);
    const char* found = nullptr;
    for (; at < lastVector && found == nullptr; at += VECTOR_SIZE)
    {
        found = tryCandidates(search, at, topBits(filter.apply(at)));
    }
    return found != nullptr ? found : tryCandidates(search, lastVector, topBits(filter.apply(lastVector)));
}

/// \param lastStart the last position where the pattern still fits, at least fifteen bytes behind `text`.
const char* findFiltered(SSearch& search, const char* text, const char* lastStart, const char* end)
{
    constexpr unsigned int GROUP = 4U * VECTOR_SIZE;
    CFilter filter(search);
    const char* at = text;
    for (; lastStart - at >= static_cast<std::ptrdiff_t>(GROUP); at += GROUP)
    {
        const ByteVector a = filter.apply(at);
        const ByteVector b = filter.apply(at + VECTOR_SIZE);
        const ByteVector c = filter.apply(at + VECTOR_SIZE + VECTOR_SIZE);
        const ByteVector d = filter.apply(at + GROUP - VECTOR_SIZE);
        if (!hasTopBit(a | b | c | d))
        {
            continue;
        }
        const std::uint64_t low = topBits(a) | topBits(b) << VECTOR_SIZE;
        const std::uint64_t high = topBits(c) | topBits(d) << VECTOR_SIZE;
        const char* const found = tryCandidates(search, at, low | high << 2U * VECTOR_SIZE);
        if (found != nullptr)
        {
            return found;
        }
        if (search.isHopeless(static_cast<std::size_t>(at - text)))
        {
            return finishTwoWay(search, at, end);
        }
        filter = CFilter(search);
    }
    return findInRest(search, at, lastStart);
}

#endif

/// Goes from one occurrence of the pattern's first byte to the next.
const char* findByFirst(SSearch& search, const char* text, const char* lastStart, const char* end)
{
    for (const char* at = text; at <= lastStart; ++at)
    {
        const std::size_t starts = static_cast<std::size_t>(lastStart - at) + 1U;
        at = static_cast<const char*>(std::memchr(at, *search.pattern, starts));
        if (at == nullptr)
        {
            return nullptr;
        }
        if (search.isMatch(at))
        {
            return at;
        }
        if (search.isHopeless(static_cast<std::size_t>(at - text)))
        {
            return finishTwoWay(search, at + 1, end);
        }
    }
    return nullptr;
}

} // namespace

const char* findBytes(const char* text, std::size_t length, const char* pattern, std::size_t patternLength)
{
    if (patternLength > length)
    {
        return nullptr;
    }
    const char* const end = text + length;
    const char* const lastStart = end - patternLength;
    SSearch search = {pattern, patternLength, {0U, patternLength - 1U}, 0U};
#if KO_HAS_BYTE_VECTOR
    if (patternLength > 1U && lastStart - text >= static_cast<std::ptrdiff_t>(VECTOR_SIZE) - 1)
    {
        return findFiltered(search, text, lastStart, end);
    }
#endif
    return findByFirst(search, text, lastStart, end);
}

const char* findBytesBeforeZero(const char* text, std::size_t length, const char* pattern,
                                std::size_t patternLength)
{
    const char* const found = findBytes(text, length, pattern, patternLength);
    if (found == nullptr)
    {
        return nullptr;
    }
    const std::size_t passed = static_cast<std::size_t>(found - text) + 1U;
    return std::memchr(text, '\0', passed) == nullptr ? found : nullptr;
}

const char* findLastBytes(const char* text, std::size_t length, const char* pattern,
                          std::size_t patternLength)
{
    const SView<true> reversedText = {text, static_cast<std::ptrdiff_t>(length)};
    const SView<true> reversedPattern = {pattern, static_cast<std::ptrdiff_t>(patternLength)};
    const std::ptrdiff_t found = searchTwoWay(reversedText, reversedPattern);
    return found < 0 ? nullptr : text + (reversedText.size - found - reversedPattern.size);
}

} // namespace KoPrivate
