#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "pf/containers/TKoVector.h"

/// A file of the system that is read again and again, and the number in it.
struct Source
{
    /// Finds the number, in thousandths of the unit, in the file's text; nothing if it is not there.
    using Evaluate = std::function<std::optional<std::uint64_t>(const std::string& text)>;

    const char* name;
    const char* path;
    unsigned int periodMs;
    const char* unit;
    Evaluate evaluate;

    /// Reads the file. \return its number; nothing if there is none.
    std::optional<std::uint64_t> read() const;
};

/// What the station samples.
TKoVector<Source> stationSources();
