#include "pf/containers/KoSortedSearch.h"

#include <cstdint>
#include <cstring>

namespace
{

using KoPrivate::SSortedPosition;

constexpr unsigned int WORD_SIZE = 8;

/// Texts that stand a number of bytes apart.
struct STextArray
{
    const void* first;
    std::size_t stride;

    const CKoString& at(std::size_t index) const
    {
        const void* const element = static_cast<const char*>(first) + index * stride;
        return *static_cast<const CKoString*>(element);
    }
};

/// Eight bytes as a number, the first one most significant.
std::uint64_t loadWord(const char* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap64(word) : word;
}

/// The bytes from `offset` on, filled up with zeros behind the end. The last ones are loaded together with
/// what stands before them (a block has 17 bytes in front of its text), because nothing behind may be read.
std::uint64_t wordAt(const CKoString& text, unsigned int offset)
{
    const unsigned int length = text.byteLength();
    if (length >= offset + WORD_SIZE)
    {
        return loadWord(text.c_str() + offset);
    }
    if (length <= offset)
    {
        return 0;
    }
    const unsigned int missing = offset + WORD_SIZE - length;
    return loadWord(text.c_str() + length - WORD_SIZE) << (8 * missing);
}

/// The top bit of every byte that is zero.
std::uint64_t zeroBytesOf(std::uint64_t word)
{
    constexpr std::uint64_t LOW_BITS = 0x7F7F7F7F7F7F7F7F;
    return ~(((word & LOW_BITS) + LOW_BITS) | word | LOW_BITS);
}

/// Eight bytes of the key. A text ends at its first zero byte, as for strcmp: with that byte, and no further,
/// other texts are compared.
class CKeyWord
{
public:
    CKeyWord(const CKoString& key, unsigned int offset)
        : m_word(wordAt(key, offset))
        , m_mask(~std::uint64_t())
    {
        const std::uint64_t zeros = zeroBytesOf(m_word);
        m_isLast = zeros != 0;
        if (m_isLast)
        {
            m_mask <<= 56 - (__builtin_clzll(zeros) & ~7);
        }
        m_word &= m_mask;
    }

    bool isLast() const { return m_isLast; }
    std::uint64_t word() const { return m_word; }
    std::uint64_t wordOf(const CKoString& text, unsigned int offset) const
    {
        return wordAt(text, offset) & m_mask;
    }

private:
    std::uint64_t m_word;
    std::uint64_t m_mask;
    bool m_isLast;
};

/// Compares from `offset` on, which is not behind the key's end. \return as strcmp.
int compareFrom(unsigned int offset, const CKoString& text, const CKoString& key)
{
    for (;; offset += WORD_SIZE)
    {
        const CKeyWord expected(key, offset);
        const std::uint64_t word = expected.wordOf(text, offset);
        if (word != expected.word())
        {
            return word > expected.word() ? 1 : -1;
        }
        if (expected.isLast())
        {
            return 0;
        }
    }
}

/// A binary search. What the key has in common with both ends of the range, all texts between have, too: once
/// that is a word, the word is looked at no more.
class CTextSearch
{
public:
    CTextSearch(const STextArray& array, const CKoString& key)
        : m_array(array)
        , m_key(key)
        , m_word(key, 0)
    {
    }

    SSortedPosition run(std::size_t count)
    {
        std::size_t first = 0;
        while (count > 0)
        {
            const std::size_t half = count / 2;
            const std::size_t rest = count - half - 1;
            prefetch(first, half, rest);
            if (isBefore(m_array.at(first + half)))
            {
                first += half + 1;
                count = rest;
            }
            else
            {
                count = half;
            }
        }
        return {static_cast<int>(first), m_isFound};
    }

private:
    /// One of the two middles is next; which one is known only after the comparison.
    void prefetch(std::size_t first, std::size_t half, std::size_t rest) const
    {
        if (rest == 0)
        {
            return;
        }
        __builtin_prefetch(m_array.at(first + half / 2).c_str());
        __builtin_prefetch(m_array.at(first + half + 1 + rest / 2).c_str());
    }

    bool isBefore(const CKoString& text)
    {
        const std::uint64_t word = m_word.wordOf(text, m_offset);
        if (__builtin_expect(word == m_word.word(), 0))
        {
            return isBeforeByRest(text);
        }
        return word > m_word.word();
    }

    /// For a text that has the word.
    __attribute__((noinline)) bool isBeforeByRest(const CKoString& text)
    {
        const int order = m_word.isLast() ? 0 : compareFrom(m_offset + WORD_SIZE, text, m_key);
        if (order > 0)
        {
            m_isInFront = true;
        }
        else
        {
            m_isBehind = true;
        }
        m_isFound = m_isFound || order == 0;
        if (m_isInFront && m_isBehind && !m_word.isLast())
        {
            advance();
        }
        return order > 0;
    }

    void advance()
    {
        m_offset += WORD_SIZE;
        m_word = CKeyWord(m_key, m_offset);
        m_isInFront = m_isBehind = false;
    }

    const STextArray m_array;
    const CKoString& m_key;
    CKeyWord m_word;           ///< of the key at m_offset
    unsigned int m_offset = 0; ///< what is before it, the range has in common with the key
    bool m_isInFront = false;  ///< the text in front of the range has the word
    bool m_isBehind = false;   ///< the text behind the range has it
    bool m_isFound = false;    ///< a text equals the key, and so does the one behind the range from then on
};

} // namespace

SSortedPosition KoPrivate::searchText(const CKoString* first, std::size_t stride, int count,
                                      const CKoString& key)
{
    return CTextSearch({first, stride}, key).run(static_cast<std::size_t>(count));
}
