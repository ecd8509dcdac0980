// A client that says nothing about the width of file offsets.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "tests/util/NarrowDirectory.h"

#include <cerrno>

#include "pf/util/KoDirectory.h"

KoTest::DirectoryContent KoTest::readNarrowDirectory(const std::string& path)
{
    DirectoryContent content;
    DIR* const directory = vanta_qnx_safe_opendir(path.c_str());
    struct
    {
        dirent entry;
        char guard;
    } room = {{}, 'g'};
    for (;;)
    {
        dirent* found = nullptr;
        const int error = vanta_qnx_safe_readdir_r(directory, &room.entry, &found);
        if (error == EOVERFLOW)
            ++content.refused;
        else if (error != 0 || found != &room.entry || room.guard != 'g')
            break;
        else
            content.entries.emplace(room.entry.d_name, room.entry.d_ino);
    }
    vanta_qnx_safe_closedir(directory);
    return content;
}
