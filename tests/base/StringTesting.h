#pragma once

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "pf/base/CKoString.h"

namespace KoTest
{

using Position = CKoString::const_iterator;

/// A string's text with everything that can be seen of it, for comparisons in one line.
struct Seen
{
    std::string text;
    unsigned int length;
    unsigned int capacity;
};

inline bool operator==(const Seen& a, const Seen& b)
{
    return a.text == b.text && a.length == b.length && a.capacity == b.capacity;
}

inline void PrintTo(const Seen& seen, std::ostream* out)
{
    *out << testing::PrintToString(seen.text) << " length " << seen.length << " capacity " << seen.capacity;
}

inline std::string textOf(const CKoString& string)
{
    return std::string(string.c_str(), string.byteLength());
}

inline Seen see(const CKoString& string)
{
    return {textOf(string), string.length(), string.capacity()};
}

/// The block a string points at.
inline CKoString::SStringData* blockOf(const CKoString& string)
{
    CKoString::SStringData* data;
    std::memcpy(&data, &string, sizeof(data));
    return data;
}

inline CKoString make(const std::string& bytes)
{
    return CKoString(bytes.c_str(), static_cast<unsigned int>(bytes.size()));
}

/// A position a number of characters into a string.
inline Position at(const CKoString& string, int characters)
{
    Position position = string.begin();
    return position += characters;
}

/// What the acceptance rule lets pass of some bytes.
struct Accepted
{
    std::string text;
    unsigned int characters;
};

inline Accepted accept(const std::string& bytes)
{
    const auto isOpen = [](char byte) { return (static_cast<unsigned char>(byte) & 0x80U) != 0; };
    Accepted accepted = {"", 0U};
    for (std::size_t at = 0; at < bytes.size(); at = accepted.text.size(), ++accepted.characters)
    {
        std::size_t n = 0; // top bits of the lead: none for ASCII, one for a byte that leads nothing
        while (n < 8 && (static_cast<unsigned char>(bytes[at]) & 0x80U >> n) != 0)
        {
            ++n;
        }
        const std::string sequence = bytes.substr(at, n == 0 ? 1 : n);
        const bool isAllOpen = n == 0 || std::all_of(sequence.begin(), sequence.end(), isOpen);
        if (n == 1 || n > 6 || sequence.size() < n || !isAllOpen)
        {
            break;
        }
        accepted.text += sequence;
    }
    return accepted;
}

/// Random numbers whose seed is in the failure message: `SCOPED_TRACE(random.trace())`.
class Random
{
public:
    std::string trace() const { return "seed " + std::to_string(m_seed); }

    /// A number in [0, limit).
    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(m_engine() % limit); }

    /// One well-formed character of 1 to 6 bytes, mostly short ones; never a zero byte.
    std::string character()
    {
        // clang-format off
        static const char* const CHARACTERS[] = {
            "a", "b", "c", " ", "%", "1", "\xC3\xA9", "\xCE\xBB", "\xE4\xB8\x96", "\xE2\x82\xAC",
            "\xF0\x9F\x98\x80", "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80"};
        // clang-format on
        return CHARACTERS[below(13)];
    }

    std::string text(unsigned int mostCharacters)
    {
        std::string result;
        for (unsigned int i = below(mostCharacters + 1); i != 0; --i)
        {
            result += character();
        }
        return result;
    }

    /// Bytes without a zero, of which leads, continuation bytes and odd ones take turns.
    std::string bytes(unsigned int mostBytes)
    {
        std::string result;
        for (unsigned int i = below(mostBytes + 1); i != 0; --i)
        {
            const unsigned int kind = below(8);
            const unsigned int low = kind < 2 ? 'a' : kind < 6 ? 0x80 : 0xC0;
            result += static_cast<char>(low + below(kind < 2 ? 4 : 0x40));
        }
        return result;
    }

private:
    unsigned int m_seed = std::random_device{}();
    std::mt19937 m_engine{m_seed};
};

} // namespace KoTest
