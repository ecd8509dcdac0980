#include "pf/platform/KoLaneMemory.h"

#include "pf/platform/KoFileLimit.h"
#include "pf/platform/KoLocalSocket.h"
#include "pf/platform/KoPlatformRetry.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr std::size_t AREA_STEP = LANE_SMALL_AREA;
constexpr std::size_t FIRST_RESERVE = 4096;
constexpr std::size_t RESERVE_STEP = 65536;
constexpr int READ_WRITE = PROT_READ | PROT_WRITE;

/// Doubles up to the size that is kept, so that a series of growing messages maps a few times only; beyond it
/// takes what is needed.
std::size_t areaFor(std::size_t bytes) noexcept
{
    std::size_t size = LANE_SMALL_AREA;
    while (size < bytes && size < LANE_KEPT_AREA)
    {
        size *= 2U;
    }
    return size >= bytes ? size : (bytes + AREA_STEP - 1U) / AREA_STEP * AREA_STEP;
}

bool isSealed(int descriptor) noexcept
{
    const int seals = ::fcntl(descriptor, F_GET_SEALS);
    return seals != -1 && (seals & F_SEAL_SHRINK) != 0;
}

/// What the file has beyond the header; 0 when it cannot be told.
std::size_t areaOfFile(int descriptor) noexcept
{
    struct stat status;
    if (::fstat(descriptor, &status) != 0 || status.st_size <= static_cast<off_t>(LANE_AREA_OFFSET))
    {
        return 0;
    }
    const off_t bytes = status.st_size - static_cast<off_t>(LANE_AREA_OFFSET);
    return static_cast<std::size_t>(std::min<off_t>(bytes, static_cast<off_t>(areaFor(LANE_MAX_BYTES))));
}

void* mapFile(int descriptor, std::size_t bytes, std::size_t offset) noexcept
{
    void* const address =
        ::mmap(nullptr, bytes, READ_WRITE, MAP_SHARED, descriptor, static_cast<off_t>(offset));
    return address != MAP_FAILED ? address : nullptr;
}

/// Makes the system set memory aside for a range of the file.
bool reserveFile(int descriptor, std::size_t offset, std::size_t bytes) noexcept
{
    const off_t start = static_cast<off_t>(offset);
    const off_t size = static_cast<off_t>(bytes);
    const bool reserved = repeatInterrupted([=] { return ::fallocate(descriptor, 0, start, size); }) == 0;
    errno = !reserved && errno == ENOSPC ? ENOMEM : errno;
    return reserved;
}

} // namespace

namespace KoPlatform
{

LaneMemory::~LaneMemory()
{
    close();
}

bool LaneMemory::create() noexcept
{
    m_descriptor = ::memfd_create("libsys_vanta lane", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    return m_descriptor != -1 && grow(LANE_SMALL_AREA) && reserveFile(m_descriptor, 0, sizeof(SLaneHeader)) &&
           ::fcntl(m_descriptor, F_ADD_SEALS, F_SEAL_SHRINK) == 0 && map();
}

bool LaneMemory::adopt(int descriptor) noexcept
{
    m_descriptor = descriptor;
    m_fileBytes = areaOfFile(descriptor);
    if (!isSealed(descriptor) || m_fileBytes < LANE_SMALL_AREA)
    {
        errno = EPROTO;
        return false;
    }
    return map();
}

bool LaneMemory::map() noexcept
{
    m_header = static_cast<SLaneHeader*>(mapFile(m_descriptor, sizeof(SLaneHeader), 0));
    m_area = static_cast<unsigned char*>(mapFile(m_descriptor, LANE_SMALL_AREA, LANE_AREA_OFFSET));
    m_mappedBytes = m_area != nullptr ? LANE_SMALL_AREA : 0;
    return m_header != nullptr && m_area != nullptr;
}

bool LaneMemory::grow(std::size_t bytes) noexcept
{
    if (bytes <= m_fileBytes)
    {
        return true;
    }
    const std::size_t size = areaFor(bytes);
    const off_t end = static_cast<off_t>(LANE_AREA_OFFSET) + static_cast<off_t>(size);
    if (!isWithinFileLimit(end))
    {
        errno = EFBIG;
        return false;
    }
    if (repeatInterrupted([=] { return ::ftruncate(m_descriptor, end); }) != 0)
    {
        return false;
    }
    m_fileBytes = size;
    return true;
}

bool LaneMemory::reach(std::size_t bytes) noexcept
{
    return (bytes <= m_mappedBytes || extend(bytes)) && (bytes <= m_reservedBytes || reserve(bytes));
}

bool LaneMemory::extend(std::size_t bytes) noexcept
{
    if (bytes > m_fileBytes)
    {
        m_fileBytes = areaOfFile(m_descriptor);
    }
    if (bytes > m_fileBytes)
    {
        errno = EPROTO;
        return false;
    }
    return remap(std::min(areaFor(bytes), m_fileBytes));
}

/// Doubles, too. Goes in steps, because a signal undoes the step that it interrupts.
bool LaneMemory::reserve(std::size_t bytes) noexcept
{
    std::size_t target = std::max(m_reservedBytes, FIRST_RESERVE);
    while (target < bytes)
    {
        target *= 2U;
    }
    target = std::min(target, m_mappedBytes);
    while (m_reservedBytes < target)
    {
        const std::size_t step = std::min(target - m_reservedBytes, RESERVE_STEP);
        if (!reserveFile(m_descriptor, LANE_AREA_OFFSET + m_reservedBytes, step))
        {
            return false;
        }
        m_reservedBytes += step;
    }
    return true;
}

bool LaneMemory::remap(std::size_t bytes) noexcept
{
    void* const moved = ::mremap(m_area, m_mappedBytes, bytes, MREMAP_MAYMOVE);
    if (moved == MAP_FAILED)
    {
        return false;
    }
    m_area = static_cast<unsigned char*>(moved);
    m_mappedBytes = bytes;
    m_reservedBytes = std::min(m_reservedBytes, bytes);
    return true;
}

void LaneMemory::trim() noexcept
{
    if (m_mappedBytes > LANE_KEPT_AREA)
    {
        remap(LANE_KEPT_AREA);
    }
}

void LaneMemory::giveBack() noexcept
{
    if (m_mappedBytes <= LANE_KEPT_AREA)
    {
        return;
    }
    const off_t start = static_cast<off_t>(LANE_AREA_OFFSET + LANE_KEPT_AREA);
    const off_t bytes = static_cast<off_t>(m_fileBytes - LANE_KEPT_AREA);
    trim();
    repeatInterrupted(
        [=] { return ::fallocate(m_descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, start, bytes); });
}

void LaneMemory::close() noexcept
{
    if (m_header != nullptr)
    {
        ::munmap(m_header, sizeof(SLaneHeader));
        m_header = nullptr;
    }
    if (m_area != nullptr)
    {
        ::munmap(m_area, m_mappedBytes);
        m_area = nullptr;
    }
    closeDescriptor(m_descriptor);
}

} // namespace KoPlatform
