#pragma once

#include <string>

#include <sys/types.h>

/// What tests expect in backtrace files.
namespace KoTest
{

/// How often the part occurs in the text.
inline std::size_t countOf(const std::string& part, const std::string& text)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
    {
        ++count;
    }
    return count;
}

/// The header line that the main thread of a process leaves.
inline std::string backtraceHeader(pid_t pid)
{
    return "TID: 1 PID: " + std::to_string(pid);
}

/// One whole record as a regular expression; the arguments are expressions, too, the last one the quantifier
/// of the map's lines.
inline std::string backtraceRecord(const std::string& information, const std::string& header,
                                   const std::string& mapLines = "+")
{
    return "\n\\[QNX backtrace\\] INFO - " + information + "\n\n" + header +
           "\n"
           "data below is the actual callstack created with QNX libbacktrace.so\n"
           "usable for analysis with proper project MAP file\n\n"
           "(\n([0-9A-F]{8,16} ){6})*(\n([0-9A-F]{8,16} ){1,5})?"
           "\n\n([0-9A-F]{8,16}-[0-9A-F]{8,16} [^\n]+\n)" +
           mapLines + "\n\n";
}

} // namespace KoTest
