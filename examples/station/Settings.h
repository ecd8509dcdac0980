#pragma once

#include <optional>
#include <string>

#include "Source.h"
#include "pf/base/CKoString.h"
#include "pf/containers/TKoVector.h"
#include "pf/util/CKoPath.h"

/// What the station's processes are told by their configuration file:
///
///     [station]
///     seconds = 5                     # how long to sample
///     directory = run                 # where the recorder tells its address
///     records = data/records/samples  # the recorder's file; its directory is made
///
///     [sources]
///     # name; file; a sample every so many milliseconds; unit; how its number is found
///     uptime; /proc/uptime; 130; s; first
struct Settings
{
    unsigned int seconds = 5;
    std::string directory = ".";
    CKoPath records = "samples";
    TKoVector<Source> sources;

    /// Reads the file. A line that is of no use is told on standard error, with file and line, and the rest
    /// is used. \return nothing if the file cannot be opened, which is told as well.
    static std::optional<Settings> read(const std::string& path);
};
