#pragma once

#include "pf/base/CKoString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>

namespace KoPrivate
{

/// One step of a hash: what `bits` add to it.
inline std::uint64_t addToHash(std::uint64_t hash, std::uint64_t bits)
{
    hash ^= bits;
    hash ^= hash >> 32U;               // the product carries upwards only
    return hash * 0x9E3779B97F4A7C15U; // 2^64 divided by the golden ratio
}

/// The 32 bits of a hash of which any are good for choosing a bucket.
inline unsigned int foldHash(std::uint64_t hash)
{
    return static_cast<unsigned int>(hash >> 32U) ^ static_cast<unsigned int>(hash);
}

/// The bytes of an unsigned number in the order of this machine.
template <class Word>
Word loadWord(const char* bytes)
{
    Word word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// Up to eight bytes as a number. Different bytes give different numbers when there are as many of them.
inline std::uint64_t loadShortRun(const char* bytes, std::size_t count)
{
    if (count >= 4U)
    {
        const auto low = loadWord<std::uint32_t>(bytes);
        const auto high = loadWord<std::uint32_t>(bytes + count - 4U);
        return static_cast<std::uint64_t>(high) << 32U | low;
    }
    std::uint64_t result = 0U;
    for (std::size_t i = 0; i < count; ++i)
    {
        result = result << 8U | static_cast<unsigned char>(bytes[i]);
    }
    return result;
}

inline unsigned int hashBytes(const char* bytes, std::size_t count)
{
    std::uint64_t hash = count;
    for (; count > 8U; count -= 8U, bytes += 8)
    {
        hash = addToHash(hash, loadWord<std::uint64_t>(bytes));
    }
    return foldHash(addToHash(hash, loadShortRun(bytes, count)));
}

} // namespace KoPrivate

/// The default hash of TKoHashArray: equal values have equal hashes, and the low bits are as good as the
/// others. What std::hash accepts is accepted here. Hashes are good within a process and belong into no file.
template <class T>
struct TKoHash
{
    unsigned int operator()(const T& value) const
    {
        return KoPrivate::foldHash(KoPrivate::addToHash(0U, std::hash<T>()(value)));
    }
};

/// Texts are hashed by their bytes.
template <>
struct TKoHash<CKoString>
{
    unsigned int operator()(const CKoString& text) const
    {
        return KoPrivate::hashBytes(text.c_str(), text.byteLength());
    }
};
