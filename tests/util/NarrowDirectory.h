#pragma once

#include <map>
#include <string>

namespace KoTest
{

/// What reading one directory gave.
struct DirectoryContent
{
    std::map<std::string, unsigned long long> entries; ///< names, and the numbers of their files
    unsigned int refused = 0;                          ///< entries with numbers that have no room
};

/// Reads a directory as a program does that is compiled without 64-bit file offsets.
DirectoryContent readNarrowDirectory(const std::string& path);

} // namespace KoTest
