#pragma once

#include "pf/platform/KoLaneRegion.h"

#include <cstddef>
#include <sys/uio.h>

namespace KoPlatform
{

/// One end's view of a lane's shared memory: the header, and as much of the area as was needed so far. Each
/// end has its own; the client also makes the memory and lets it grow. Not synchronised. Failures are false
/// with `errno`.
class LaneMemory
{
public:
    LaneMemory() noexcept = default;
    ~LaneMemory();
    LaneMemory(const LaneMemory&) = delete;
    LaneMemory& operator=(const LaneMemory&) = delete;

    /// Makes new memory that can never shrink.
    bool create() noexcept;

    /// Uses memory that the peer made; takes over the descriptor in any case. `EPROTO` when it is too small,
    /// or could shrink under the hands of a reader.
    bool adopt(int descriptor) noexcept;

    /// Lets the file have an area of at least this size. For the client. `EFBIG` when the process may not
    /// have files that large.
    bool grow(std::size_t bytes) noexcept;

    /// Makes at least so many bytes of the area accessible, which may move it: maps them, and makes sure that
    /// the system has memory for them, because an access cannot report that it has none. `EPROTO` when the
    /// file has not so many; `ENOMEM`.
    bool reach(std::size_t bytes) noexcept;

    /// Unmaps what is not worth keeping after a large message.
    void trim() noexcept;

    /// The same, and gives its memory back to the system. For the client, while the server does not use the
    /// area.
    void giveBack() noexcept;

    /// Closes and unmaps everything.
    void close() noexcept;

    bool isOpen() const noexcept { return m_header != nullptr; }
    int descriptor() const noexcept { return m_descriptor; }
    SLaneHeader& header() const noexcept { return *m_header; }
    /// The first so many bytes of the area, which are accessible.
    iovec part(std::size_t bytes) const noexcept { return iovec{m_area, bytes}; }

private:
    bool map() noexcept;
    bool extend(std::size_t bytes) noexcept;
    bool remap(std::size_t bytes) noexcept;
    bool reserve(std::size_t bytes) noexcept;

    int m_descriptor = -1;
    SLaneHeader* m_header = nullptr;
    unsigned char* m_area = nullptr;
    // Of the area, as known here; each is at most the next.
    std::size_t m_reservedBytes = 0;
    std::size_t m_mappedBytes = 0;
    std::size_t m_fileBytes = 0;
};

} // namespace KoPlatform
