#include "pf/platform/KoPlatformBacktrace.h"

#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <unwind.h>

namespace
{

using KoPlatform::SMemoryMap;
using KoPlatform::SMemoryMapEntry;

struct SWalk
{
    std::uintptr_t* addresses;
    int count;
    int capacity;
};

_Unwind_Reason_Code storeAddress(_Unwind_Context* context, void* argument)
{
    SWalk& walk = *static_cast<SWalk*>(argument);
    const std::uintptr_t address = _Unwind_GetIP(context);
    if (address == 0 || walk.count >= walk.capacity)
    {
        return _URC_END_OF_STACK;
    }
    walk.addresses[walk.count++] = address;
    return _URC_NO_REASON;
}

/// One mapping: a segment of a loaded object, a data file or anonymous memory.
struct SMapping
{
    SMemoryMapEntry range;
    bool isExecutable;
    std::uintmax_t device;
    std::uintmax_t inode; ///< 0 without a file
};

/// Reads the kernel's list of mappings, one line per mapping, in small pieces:
/// "begin-end rwxp offset major:minor inode   path".
class CMapsReader
{
public:
    explicit CMapsReader(int file)
        : m_file(file)
    {
    }

    /// \return false at the end of the list.
    bool next(SMapping& mapping)
    {
        mapping = SMapping();
        mapping.range.begin = static_cast<std::uintptr_t>(readNumber(16));
        mapping.range.end = static_cast<std::uintptr_t>(readNumber(16));
        readPermissions(mapping);
        readNumber(16);
        const std::uintmax_t major = readNumber(16);
        mapping.device = (major << 32) | readNumber(16);
        mapping.inode = readNumber(10);
        readPath(mapping.range.name);
        return mapping.range.end != 0;
    }

private:
    /// The next character, 0 at the end.
    char get()
    {
        if (m_position == m_length)
        {
            m_position = 0;
            const ssize_t length =
                KoPlatform::repeatInterrupted([this] { return ::read(m_file, m_chunk, sizeof(m_chunk)); });
            m_length = length > 0 ? static_cast<std::size_t>(length) : 0;
        }
        return m_length == 0 ? '\0' : m_chunk[m_position++];
    }

    static unsigned int digitValue(char digit)
    {
        return static_cast<unsigned int>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
    }

    /// A number and the character behind it.
    std::uintmax_t readNumber(unsigned int base)
    {
        std::uintmax_t value = 0;
        for (char digit = get(); (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
             digit = get())
        {
            value = value * base + digitValue(digit);
        }
        return value;
    }

    void readPermissions(SMapping& mapping)
    {
        for (char flag = get(); flag != ' ' && flag != '\0'; flag = get())
        {
            mapping.isExecutable = mapping.isExecutable || flag == 'x';
        }
    }

    /// The rest of the line without leading blanks. Of a long path the end stays: it names the file.
    void readPath(char (&name)[SMemoryMapEntry::NAME_SIZE])
    {
        constexpr char CUT[] = "...";
        std::size_t length = 0;
        for (char next = get(); next != '\n' && next != '\0'; next = get())
        {
            if (length == 0 && next == ' ')
            {
                continue;
            }
            if (length == sizeof(name) - 1)
            {
                std::memmove(name, name + 1, length - 1);
                std::memcpy(name, CUT, sizeof(CUT) - 1);
                --length;
            }
            name[length++] = next;
        }
        name[length] = '\0';
    }

    int m_file;
    std::size_t m_position = 0;
    std::size_t m_length = 0;
    char m_chunk[512];
};

bool isSameFile(const SMapping& left, const SMapping& right)
{
    return left.device == right.device && left.inode == right.inode;
}

/// Adds what the mappings of one file cover, if code was loaded from it.
void addObject(SMemoryMap& map, const SMapping& object)
{
    if (object.inode == 0 || !object.isExecutable)
    {
        return;
    }
    if (map.entryCount < SMemoryMap::MAX_ENTRIES)
    {
        map.entries[map.entryCount] = object.range;
    }
    ++map.entryCount;
}

/// Joins the neighbouring mappings of each file. Anonymous memory between them belongs to nobody.
void collectObjects(CMapsReader& reader, SMemoryMap& map)
{
    SMapping object = SMapping();
    SMapping mapping;
    while (reader.next(mapping))
    {
        if (mapping.inode == 0)
        {
            continue;
        }
        if (isSameFile(object, mapping))
        {
            object.range.end = mapping.range.end;
            object.isExecutable = object.isExecutable || mapping.isExecutable;
            continue;
        }
        addObject(map, object);
        object = mapping;
    }
    addObject(map, object);
}

} // namespace

int KoPlatform::bt_init_accessor(SBacktraceAccessor& accessor, BacktraceAccessorType type)
{
    if (type != BT_SELF)
    {
        errno = EINVAL;
        return -1;
    }
    accessor.type = type;
    return 0;
}

int KoPlatform::bt_load_memmap(SMemoryMap& map)
{
    map.entryCount = 0;
    const int file = KoPlatform::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (file < 0)
    {
        return -1;
    }
    CMapsReader reader(file);
    collectObjects(reader, map);
    ::close(file);
    return 0;
}

int KoPlatform::bt_get_backtrace(const SBacktraceAccessor& accessor, std::uintptr_t* addresses, int capacity)
{
    if (accessor.type != BT_SELF)
    {
        return 0;
    }
    SWalk walk = {addresses, 0, capacity};
    _Unwind_Backtrace(storeAddress, &walk);
    return walk.count;
}

int KoPlatform::bt_sprn_memmap(const SMemoryMap& map, char* text, std::size_t size)
{
    std::size_t length = 0;
    text[0] = '\0';
    for (unsigned int i = 0; i < map.entryCount && i < SMemoryMap::MAX_ENTRIES; ++i)
    {
        const SMemoryMapEntry& entry = map.entries[i];
        const int printed = std::snprintf(text + length, size - length, "%08" PRIXPTR "-%08" PRIXPTR " %s\n",
                                          entry.begin, entry.end, entry.name);
        if (printed < 0 || static_cast<std::size_t>(printed) >= size - length)
        {
            text[length] = '\0';
            break;
        }
        length += static_cast<std::size_t>(printed);
    }
    return static_cast<int>(length);
}

void KoPlatform::bt_unload_memmap(SMemoryMap& map)
{
    map.entryCount = 0;
}
