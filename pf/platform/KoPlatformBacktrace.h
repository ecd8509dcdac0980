#pragma once

#include "pf/base/KoExport.h"

#include <cstddef>
#include <cstdint>

/// The stack walk of the calling thread and the list of the loaded objects of the process.
///
/// Everything here works on storage of the caller and allocates nothing, so that it serves after a failed
/// allocation. Records of this header are plain data without a thread rule of their own.
namespace KoPlatform
{

/// Whose stack an accessor walks.
enum BacktraceAccessorType
{
    BT_SELF = 0 ///< the calling thread's own stack
};

/// What a stack walk needs to know; filled by bt_init_accessor.
struct SBacktraceAccessor
{
    BacktraceAccessorType type;
};

/// One loaded object: the address range of all its segments and its file.
struct SMemoryMapEntry
{
    static constexpr std::size_t NAME_SIZE = 108;

    std::uintptr_t begin;
    std::uintptr_t end;
    char name[NAME_SIZE]; ///< path; of a longer path the end, after "..."
};

/// The loaded objects in ascending address order. `entryCount` may exceed the entries kept.
struct SMemoryMap
{
    static constexpr unsigned int MAX_ENTRIES = 50;

    unsigned int entryCount; ///< objects found; only the first MAX_ENTRIES are kept
    SMemoryMapEntry entries[MAX_ENTRIES];
};

/// Prepares a walk. \return 0, or -1 with `errno` EINVAL for an unknown type.
KO_EXPORT int bt_init_accessor(SBacktraceAccessor& accessor, BacktraceAccessorType type);

/// Reads the list of loaded objects. Enters the kernel. \return 0, or -1 with `errno` when it cannot be read.
KO_EXPORT int bt_load_memmap(SMemoryMap& map);

/// Collects the return addresses of the calling thread, innermost first, starting in this function.
/// Only code with unwind tables is walked through.
/// \return the number of addresses stored, at most `capacity`.
KO_EXPORT int bt_get_backtrace(const SBacktraceAccessor& accessor, std::uintptr_t* addresses, int capacity);

/// Prints the entries as lines "begin-end path" into `text` of `size` bytes, whole lines only, always
/// zero-terminated; a line is shorter than 150 characters.
/// \return the length of the text.
KO_EXPORT int bt_sprn_memmap(const SMemoryMap& map, char* text, std::size_t size);

/// Gives the entries up; the map is empty afterwards.
KO_EXPORT void bt_unload_memmap(SMemoryMap& map);

} // namespace KoPlatform
