#include "pf/util/KoFileOperations.h"

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/util/CKoFileHandle.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>

namespace
{

constexpr char UNIQUE_PART = '*';
constexpr int NAME_CAPACITY = 1024; ///< bytes of a name, with its terminator

/// Relaxed: only that no value comes twice matters; nothing is published with it.
std::atomic<unsigned int> sNextNumber{0U};

/// What stands around the unique part of a name.
struct STemplate
{
    explicit STemplate(const CKoPath& path)
        : directory(path.getBranch())
        , leaf(path.getLeaf())
        , mark(std::strrchr(leaf.c_str(), UNIQUE_PART))
    {
        if (!directory.isEmpty())
        {
            directory.append("/");
        }
    }

    bool isUsable() const { return mark != nullptr; }

    /// Writes the next name. \return whether it fits.
    bool makeName(char (&name)[NAME_CAPACITY]) const
    {
        const int length = std::snprintf(
            name, sizeof(name), "%s%.*s%d-%d-%u-%u%s", directory.c_str(),
            static_cast<int>(mark - leaf.c_str()), leaf.c_str(), KoOperatingSystem::getCurrentPID(),
            KoOperatingSystem::getCurrentTID(), static_cast<unsigned int>(std::time(nullptr)),
            sNextNumber.fetch_add(1U, std::memory_order_relaxed), mark + 1);
        return length > 0 && length < NAME_CAPACITY;
    }

    CKoString directory; ///< with its separator, or empty
    CKoString leaf;
    const char* mark; ///< in the leaf, or null
};

} // namespace

bool KoFileOperations::createUniqueFile(CKoPath& pathTemplate, CKoFileHandle& file)
{
    const STemplate parts(pathTemplate);
    if (!pathTemplate.isValid() || !parts.isUsable())
    {
        errno = EINVAL;
        return false;
    }
    file.close();
    // Whoever may write to the directory may have planted links under names to come; an exclusive creation
    // follows none.
    do
    {
        char name[NAME_CAPACITY];
        if (!parts.makeName(name))
        {
            errno = EINVAL;
            return false;
        }
        pathTemplate = name;
        if (file.open(pathTemplate, O_RDWR | O_CREAT | O_EXCL))
        {
            return true;
        }
    } while (errno == EEXIST);
    return false;
}
