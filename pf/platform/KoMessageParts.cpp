#include "pf/platform/KoMessageParts.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace
{

/// A place in a list of parts, between two of its bytes.
class Position
{
public:
    explicit Position(const KoPlatform::SLaneParts& list) noexcept
        : m_part(list.parts)
    {
    }

    /// How many bytes follow without a break; the caller knows that there are more bytes.
    std::size_t room() noexcept
    {
        while (m_offset == m_part->iov_len)
        {
            ++m_part;
            m_offset = 0;
        }
        return m_part->iov_len - m_offset;
    }
    unsigned char* data() const noexcept { return static_cast<unsigned char*>(m_part->iov_base) + m_offset; }
    void advance(std::size_t bytes) noexcept { m_offset += bytes; }

private:
    const iovec* m_part;
    std::size_t m_offset = 0;
};

} // namespace

namespace KoPlatform
{

int measureParts(const iovec* parts, int partCount, SLaneParts& measured) noexcept
{
    if (partCount < 0 || (parts == nullptr && partCount > 0))
    {
        return EINVAL;
    }
    std::size_t sum = 0;
    for (int i = 0; i < partCount; ++i)
    {
        const std::size_t length = parts[i].iov_len;
        if (parts[i].iov_base == nullptr && length > 0)
        {
            return EINVAL;
        }
        if (length > static_cast<std::size_t>(INT_MAX) - sum)
        {
            return EMSGSIZE;
        }
        sum += length;
    }
    measured = SLaneParts{parts, partCount, sum};
    return 0;
}

int measureBlock(const void* data, int bytes, iovec& part, SLaneParts& measured) noexcept
{
    if (bytes < 0 || (data == nullptr && bytes > 0))
    {
        return EINVAL;
    }
    part = iovec{const_cast<void*>(data), static_cast<std::size_t>(bytes)};
    measured = SLaneParts{&part, 1, part.iov_len};
    return 0;
}

std::size_t copyParts(const SLaneParts& to, const SLaneParts& from) noexcept
{
    const std::size_t bytes = std::min(to.bytes, from.bytes);
    if (bytes == 0)
    {
        return 0;
    }
    if (to.count == 1 && from.count == 1)
    {
        std::memcpy(to.parts->iov_base, from.parts->iov_base, bytes);
        return bytes;
    }
    Position target(to);
    Position source(from);
    for (std::size_t left = bytes; left > 0;)
    {
        const std::size_t run = std::min({left, target.room(), source.room()});
        std::memcpy(target.data(), source.data(), run);
        target.advance(run);
        source.advance(run);
        left -= run;
    }
    return bytes;
}

} // namespace KoPlatform
