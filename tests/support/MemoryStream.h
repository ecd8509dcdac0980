#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "pf/stream/IKoIOStream.h"

namespace KoTest
{

/// A stream over a byte vector that notes every call. It reads from the front and writes at the end; writes
/// beyond the limit are cut.
class MemoryStream : public IKoIOStream
{
public:
    std::vector<unsigned char> bytes;
    mutable std::vector<unsigned int> reads;  ///< counts asked for
    std::vector<unsigned int> writes;         ///< counts asked for
    mutable std::vector<unsigned int> aligns; ///< alignments asked for, of both sides
    std::size_t writeLimit = static_cast<std::size_t>(-1);

    MemoryStream() = default;
    explicit MemoryStream(std::vector<unsigned char> content)
        : bytes(std::move(content))
    {
    }

    bool waitToRead(int) override { return m_position < bytes.size(); }
    void ready() override {}
    void align(unsigned int alignment) const override { aligns.push_back(alignment); }
    unsigned int doRead(void* dst, unsigned int count) const override
    {
        reads.push_back(count);
        const std::size_t moved = std::min<std::size_t>(count, bytes.size() - m_position);
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(m_position), moved,
                    static_cast<unsigned char*>(dst));
        m_position += moved;
        return static_cast<unsigned int>(moved);
    }

    void flush() override {}
    bool waitToWrite(int) override { return bytes.size() < writeLimit; }
    void align(unsigned int alignment) override { aligns.push_back(alignment); }
    unsigned int doWrite(const void* src, unsigned int count) override
    {
        writes.push_back(count);
        const std::size_t moved =
            std::min<std::size_t>(count, writeLimit - std::min(writeLimit, bytes.size()));
        const auto* const first = static_cast<const unsigned char*>(src);
        bytes.insert(bytes.end(), first, first + moved);
        return static_cast<unsigned int>(moved);
    }

private:
    mutable std::size_t m_position = 0;
};

} // namespace KoTest
