#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <elfutils/libdwfl.h>

#include "tools/ko_symbolise/BacktraceFile.h"
#include "tools/ko_symbolise/ObjectFiles.h"

namespace KoSymbolise
{

/// One function that was active; fields that are not known are empty or 0.
struct Frame
{
    std::string function;
    std::string file;
    int line = 0;
};

/// What an address means.
struct Place
{
    std::vector<Frame> frames; ///< innermost first: inlined functions, then the one they were inlined into
    std::string object;        ///< the object's path in the map; empty outside of all objects
    std::uint64_t offset = 0;  ///< of the address in the object
};

/// Knows the objects of one memory map by their files and debug files, for any processor.
class Symboliser
{
public:
    /// \param debugDirectories where to look for separate debug files, besides the usual places
    Symboliser(const std::vector<MapEntry>& map, const ObjectFiles& files,
               const std::vector<std::string>& debugDirectories);
    ~Symboliser();
    Symboliser(const Symboliser&) = delete;
    Symboliser& operator=(const Symboliser&) = delete;

    /// The place of the call that returns to the address.
    Place find(std::uint64_t returnAddress) const;

    /// The files that were found, and the map's paths for which none was, in the order of the map.
    const std::vector<std::string>& foundFiles() const { return m_found; }
    const std::vector<std::string>& missingFiles() const { return m_missing; }

private:
    void load(const MapEntry& entry, const ObjectFiles& files);

    std::vector<MapEntry> m_map;
    std::vector<std::string> m_found;
    std::vector<std::string> m_missing;
    std::string m_debugPath;
    char* m_debugPathText;
    Dwfl_Callbacks m_callbacks{};
    Dwfl* m_dwfl;
};

} // namespace KoSymbolise
