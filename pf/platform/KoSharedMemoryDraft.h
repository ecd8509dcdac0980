#pragma once

#include "pf/platform/KoPlatformSharedMemory.h"

#include <cstddef>

namespace KoPlatform
{

/// The directory of the host's shared-memory objects.
constexpr char SHARED_MEMORY_DIRECTORY[] = "/dev/shm";

/// Where the host keeps the object of a name.
class SharedMemoryPath
{
public:
    /// \return false with `EINVAL` for what cannot be a name.
    bool set(const char* name) noexcept;
    const char* c_str() const noexcept { return m_path; }

private:
    // Directory and slash, name, terminator.
    char m_path[sizeof(SHARED_MEMORY_DIRECTORY) + SHARED_MEMORY_NAME_MAX + 1];
};

/// Opens a path of an object for reading and writing. \return -1 with `errno`.
int openSharedMemory(const char* path, int flags, mode_t mode) noexcept;

/// An object in the making, which nobody can find: a file without a name, which goes with its descriptor,
/// or, where the host's file system has no such files, one with a hidden name of its own, which is removed
/// by the destructor. Failures are false with `errno`.
class SharedMemoryDraft
{
public:
    SharedMemoryDraft() noexcept = default;
    ~SharedMemoryDraft();
    SharedMemoryDraft(const SharedMemoryDraft&) = delete;
    SharedMemoryDraft& operator=(const SharedMemoryDraft&) = delete;

    bool create(mode_t mode) noexcept;

    /// Writes and marks, if there is a first word.
    bool begin(const unsigned int* firstWord) noexcept;

    /// Gives the object its name; `EEXIST` when there is such an object.
    bool publish(const SharedMemoryPath& path) noexcept;

    int descriptor() const noexcept { return m_descriptor; }

    /// Leaves the descriptor to the caller.
    int take() noexcept;

private:
    bool createHidden(mode_t mode) noexcept;
    bool publishUnnamed(const SharedMemoryPath& path) noexcept;

    int m_descriptor = -1;
    SharedMemoryPath m_hidden;
    bool m_isHidden = false;
};

} // namespace KoPlatform
