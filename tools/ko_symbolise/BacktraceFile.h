#pragma once

#include <cstdint>
#include <istream>
#include <string>
#include <vector>

/// The text file that the library appends a record to for every report.
namespace KoSymbolise
{

/// A loaded object: where its segments lay and which file they came from.
struct MapEntry
{
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::string path; ///< of a long path the end, after "..."

    bool operator==(const MapEntry& other) const
    {
        return begin == other.begin && end == other.end && path == other.path;
    }
};

/// One report.
struct BacktraceRecord
{
    std::string information;              ///< what was reported
    std::vector<std::string> header;      ///< what the process says about itself, without empty lines
    std::vector<std::uint64_t> addresses; ///< return addresses, innermost first
    std::vector<MapEntry> map;
};

/// Takes all records out of a file. What stands before the first record, and lines that belong to none of its
/// sections, are skipped: a file may begin or end with the rest of an older one.
std::vector<BacktraceRecord> readBacktraces(std::istream& file);

} // namespace KoSymbolise
