#include "pf/util/KoBase64.h"

#include "pf/oswrapper/CKoAsserter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr char KoBase64::b64str_table[65] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

namespace
{

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are moved with the first byte lowest");

using KoBase64::b64str_table;

constexpr char PADDING = '=';
constexpr unsigned int GROUP_BYTES = 3U;
constexpr unsigned int GROUP_CHARS = 4U;
constexpr std::size_t BYTES_AT_ONCE = 6U; // two groups
constexpr std::size_t CHARS_AT_ONCE = 8U;
constexpr unsigned int SEXTET_MASK = 0x3FU;
constexpr unsigned int BYTE_MASK = 0xFFU;
constexpr std::uint32_t FOREIGN = 0x80000000U; ///< no group of four sextets has this bit

/// The two characters of each twelve bits.
struct SPairs
{
    char chars[4096][2];
};

constexpr SPairs makePairs()
{
    SPairs pairs = {};
    for (std::size_t i = 0; i < 4096U; ++i)
    {
        pairs.chars[i][0] = b64str_table[i >> 6U];
        pairs.chars[i][1] = b64str_table[i & SEXTET_MASK];
    }
    return pairs;
}

/// The three bytes of a group, the first one lowest.
constexpr std::uint32_t toMemoryOrder(std::uint32_t bits)
{
    return (bits >> 16U) | (bits & 0xFF00U) | ((bits & BYTE_MASK) << 16U);
}

/// The three bytes that each character gives at its place in a group, FOREIGN for those that give none.
using Sextets = std::array<std::uint32_t, 256>;

constexpr Sextets makeSextets(unsigned int place)
{
    Sextets sextets = {};
    for (std::uint32_t& each : sextets)
    {
        each = FOREIGN;
    }
    for (std::uint32_t i = 0; i <= SEXTET_MASK; ++i)
    {
        sextets[static_cast<unsigned char>(b64str_table[i])] = toMemoryOrder(i << (18U - 6U * place));
    }
    return sextets;
}

constexpr SPairs PAIRS = makePairs();
constexpr Sextets SEXTETS[GROUP_CHARS] = {makeSextets(0), makeSextets(1), makeSextets(2), makeSextets(3)};

std::uint32_t sextetAt(unsigned int place, char c)
{
    return SEXTETS[place][static_cast<unsigned char>(c)];
}

/// The bytes of a group, with FOREIGN if it has a character outside the alphabet.
std::uint32_t bitsOf(const char* group)
{
    return sextetAt(0, group[0]) | sextetAt(1, group[1]) | sextetAt(2, group[2]) | sextetAt(3, group[3]);
}

/// Encodes a group.
void encodeGroup(const unsigned char* data, char* out)
{
    const std::uint32_t bits = (std::uint32_t{data[0]} << 16U) | (std::uint32_t{data[1]} << 8U) | data[2];
    std::memcpy(out, PAIRS.chars[bits >> 12U], 2U);
    std::memcpy(out + 2, PAIRS.chars[bits & 0xFFFU], 2U);
}

/// Encodes whole groups, two at a time as long as eight bytes may be read. There is room for all of them.
void encodeGroups(const unsigned char* data, unsigned int groups, char* out)
{
    for (; groups > 2U; groups -= 2U, data += BYTES_AT_ONCE, out += CHARS_AT_ONCE)
    {
        std::uint64_t bits = 0U;
        std::memcpy(&bits, data, sizeof(bits));
        bits = __builtin_bswap64(bits);
        std::memcpy(out, PAIRS.chars[bits >> 52U], 2U);
        std::memcpy(out + 2, PAIRS.chars[(bits >> 40U) & 0xFFFU], 2U);
        std::memcpy(out + 4, PAIRS.chars[(bits >> 28U) & 0xFFFU], 2U);
        std::memcpy(out + 6, PAIRS.chars[(bits >> 16U) & 0xFFFU], 2U);
    }
    for (; groups > 0U; --groups, data += GROUP_BYTES, out += GROUP_CHARS)
    {
        encodeGroup(data, out);
    }
}

/// Encodes what begins a group, as far as there is room. \return the characters written.
unsigned int encodeLastGroup(const unsigned char* data, unsigned int count, char* out, unsigned int outSize)
{
    unsigned char bytes[GROUP_BYTES] = {};
    std::memcpy(bytes, data, std::min(count, GROUP_BYTES));
    char chars[GROUP_CHARS];
    encodeGroup(bytes, chars);
    std::fill(chars + std::min(count, GROUP_BYTES) + 1U, chars + GROUP_CHARS, PADDING);
    const unsigned int written = std::min(outSize, GROUP_CHARS);
    std::memcpy(out, chars, written);
    return written;
}

/// Reading and writing positions of a decoding. The limit is no further than the text can reach, so that room
/// as large as the address space does not overflow the pointer.
class Decoder
{
public:
    Decoder(const char* text, unsigned char* out, unsigned int outSize)
        : m_text(text)
        , m_end(text + std::strlen(text))
        , m_begin(out)
        , m_out(out)
        , m_limit(out + std::min<std::size_t>(outSize, (length() / GROUP_CHARS + 1U) * GROUP_BYTES))
    {
    }

    unsigned int decodeAll()
    {
        while (m_text != m_end && m_out != m_limit && (decodeWholeGroups() || decodeGroup()))
        {
            while (*m_text == '\r' || *m_text == '\n')
            {
                ++m_text;
            }
        }
        return static_cast<unsigned int>(m_out - m_begin);
    }

private:
    std::size_t length() const { return static_cast<std::size_t>(m_end - m_text); }
    std::size_t room() const { return static_cast<std::size_t>(m_limit - m_out); }

    /// Groups of four characters of the alphabet that fit. \return whether there was one.
    bool decodeWholeGroups()
    {
        const char* text = m_text;
        unsigned char* out = m_out;
        std::size_t groups = std::min(length() / GROUP_CHARS, room() / GROUP_BYTES);
        for (; groups >= 2U; groups -= 2U, text += CHARS_AT_ONCE, out += BYTES_AT_ONCE)
        {
            const std::uint32_t first = bitsOf(text);
            const std::uint32_t second = bitsOf(text + GROUP_CHARS);
            if (((first | second) & FOREIGN) != 0U)
            {
                break;
            }
            const std::uint64_t both = first | (std::uint64_t{second} << 24U);
            std::memcpy(out, &both, BYTES_AT_ONCE);
        }
        for (; groups > 0U && (bitsOf(text) & FOREIGN) == 0U;
             --groups, text += GROUP_CHARS, out += GROUP_BYTES)
        {
            const std::uint32_t bits = bitsOf(text);
            std::memcpy(out, &bits, GROUP_BYTES);
        }
        const bool hasDecoded = text != m_text;
        m_text = text;
        m_out = out;
        return hasDecoded;
    }

    /// One group of any kind. \return whether the decoding may go on.
    bool decodeGroup()
    {
        char chars[GROUP_CHARS] = {};
        const std::size_t present = std::min<std::size_t>(length(), GROUP_CHARS);
        std::memcpy(chars, m_text, present);
        m_text += present;

        std::uint32_t bits = 0U;
        for (unsigned int i = 0; i < GROUP_CHARS; ++i)
        {
            bits |= sextetAt(i, chars[i]) & ~FOREIGN;
        }
        const auto written = static_cast<unsigned int>(std::min<std::size_t>(room(), GROUP_BYTES));
        std::memcpy(m_out, &bits, written);
        const unsigned int counting = written == GROUP_BYTES ? countOf(chars) : written;
        m_out += counting;
        return counting == GROUP_BYTES;
    }

    /// The bytes that a group counts for.
    static unsigned int countOf(const char (&chars)[GROUP_CHARS])
    {
        if (!KoBase64::isbase64(chars[1]) || !KoBase64::isbase64(chars[2]))
        {
            return 1U;
        }
        return KoBase64::isbase64(chars[3]) ? GROUP_BYTES : 2U;
    }

    const char* m_text;
    const char* const m_end;
    unsigned char* const m_begin;
    unsigned char* m_out;
    unsigned char* const m_limit;
};

} // namespace

void KoBase64::encode(const unsigned char* data, unsigned int count, char* out, unsigned int outSize)
{
    if (data == nullptr || out == nullptr)
    {
        doCheapAssert(__LINE__, "KoBase64");
        return;
    }
    const unsigned int groups = std::min(count / GROUP_BYTES, outSize / GROUP_CHARS);
    encodeGroups(data, groups, out);
    unsigned int written = groups * GROUP_CHARS;
    const unsigned int left = count - groups * GROUP_BYTES;
    if (left > 0U)
    {
        written += encodeLastGroup(data + (count - left), left, out + written, outSize - written);
    }
    if (written < outSize)
    {
        out[written] = '\0';
    }
}

unsigned int KoBase64::decode(const char* text, unsigned char* out, unsigned int outSize)
{
    if (text == nullptr || out == nullptr || outSize == 0U)
    {
        doCheapAssert(__LINE__, "KoBase64");
        return 0U;
    }
    out[0] = 0U;
    return Decoder(text, out, outSize).decodeAll();
}

unsigned int KoBase64::calcDecodeLength(const char* text)
{
    if (text == nullptr)
    {
        doCheapAssert(__LINE__, "KoBase64");
        return 0U;
    }
    std::size_t length = std::strlen(text);
    while (length > 0U && text[length - 1U] == PADDING)
    {
        --length;
    }
    return static_cast<unsigned int>(length / GROUP_CHARS * GROUP_BYTES +
                                     length % GROUP_CHARS * GROUP_BYTES / GROUP_CHARS);
}

int KoBase64::value(char c)
{
    return isbase64(c) ? static_cast<int>(sextetAt(GROUP_CHARS - 1U, c) >> 16U) : 0;
}

bool KoBase64::isbase64(char c)
{
    return sextetAt(GROUP_CHARS - 1U, c) != FOREIGN;
}
