#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "pf/base/CKoString.h"

/// A file of the system that is read again and again, and the number in it.
struct Source
{
    /// Finds the number, in thousandths of the unit, in the file's text; nothing if it is not there.
    using Evaluate = std::function<std::optional<std::uint64_t>(const std::string& text)>;

    CKoString name;
    CKoString path;
    unsigned int periodMs;
    CKoString unit;
    Evaluate evaluate;

    /// The ways to find a number: "busy", the share of the processors' time in /proc/stat; "available", the
    /// memory in /proc/meminfo; "first", the number that a file begins with. \return nothing for another
    /// name.
    static Evaluate evaluation(std::string_view name);

    /// Reads the file. \return its number; nothing if there is none.
    std::optional<std::uint64_t> read() const;
};
