// Symboliser: turns the addresses of a backtrace file into functions, files and lines.

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/ko_symbolise/BacktraceFile.h"
#include "tools/ko_symbolise/ObjectFiles.h"
#include "tools/ko_symbolise/Symboliser.h"

namespace
{

using KoSymbolise::BacktraceRecord;
using KoSymbolise::Frame;
using KoSymbolise::Place;
using KoSymbolise::Symboliser;

constexpr const char* STANDARD_INPUT = "-";

struct Options
{
    std::string root;
    std::vector<std::string> debugDirectories;
    std::vector<std::string> files = {STANDARD_INPUT};
};

void declareOptions(CLI::App& app, Options& options)
{
    app.add_option(
           "--root", options.root,
           "directory with the programs and libraries of the machine that wrote the file: a copy of its "
           "root, or all in one directory; nothing is looked for elsewhere")
        ->check(CLI::ExistingDirectory);
    app.add_option("--debug", options.debugDirectories,
                   "directory with separate debug files, found by build id or by name; besides those beside "
                   "each object, in its .debug directory and in /usr/lib/debug (may be repeated)")
        ->check(CLI::ExistingDirectory)
        ->allow_extra_args(false);
    app.add_option("FILE", options.files, "backtrace files; - is standard input")->capture_default_str();
    app.set_version_flag("--version", "ko_symbolise " KO_TOOL_VERSION);
}

/// Prints records and keeps what it knows of one memory map for the next record with the same one.
class Report
{
public:
    explicit Report(const Options& options)
        : m_options(options)
    {
    }

    /// \param written when the file was written last, if it is one
    void print(const BacktraceRecord& record, const std::filesystem::file_time_type* written)
    {
        if (m_symboliser == nullptr || !(m_map == record.map))
        {
            m_map = record.map;
            m_symboliser = std::make_unique<Symboliser>(m_map, KoSymbolise::ObjectFiles(m_options.root),
                                                        m_options.debugDirectories);
        }
        warn(written);
        std::printf("%s\n", record.information.c_str());
        for (const std::string& line : record.header)
        {
            std::printf("%s\n", line.c_str());
        }
        for (std::size_t i = 0; i < record.addresses.size(); ++i)
        {
            print(i, record.addresses[i]);
        }
        std::printf("\n");
    }

private:
    static std::string describe(const Frame& frame)
    {
        const std::string function = frame.function.empty() ? "??" : frame.function;
        const bool hasLine = !frame.file.empty() && frame.line > 0;
        return hasLine ? function + " at " + frame.file + ":" + std::to_string(frame.line) : function;
    }

    void print(std::size_t index, std::uint64_t address) const
    {
        const Place place = m_symboliser->find(address);
        std::printf("#%-2zu %08" PRIX64 " ", index, address);
        const char* joint = "";
        for (const Frame& frame : place.frames)
        {
            std::printf("%s %s", joint, describe(frame).c_str());
            joint = "\n      inlined into";
        }
        if (place.frames.empty())
        {
            std::printf(" ??");
        }
        if (!place.object.empty())
        {
            std::printf(" in %s+0x%" PRIx64, place.object.c_str(), place.offset);
        }
        std::printf("\n");
    }

    /// Says once per file why its names may be missing or wrong.
    void warn(const std::filesystem::file_time_type* written)
    {
        for (const std::string& path : m_symboliser->missingFiles())
        {
            if (m_warned.insert(path).second)
            {
                std::fprintf(stderr, "ko_symbolise: not found, or no object: %s\n", path.c_str());
            }
        }
        for (const std::string& file : m_symboliser->foundFiles())
        {
            std::error_code error;
            const auto changed = std::filesystem::last_write_time(file, error);
            if (written != nullptr && !error && changed > *written && m_warned.insert(file).second)
            {
                std::fprintf(stderr, "ko_symbolise: changed after the backtrace was written: %s\n",
                             file.c_str());
            }
        }
    }

    const Options& m_options;
    std::vector<KoSymbolise::MapEntry> m_map;
    std::unique_ptr<Symboliser> m_symboliser;
    std::set<std::string> m_warned;
};

/// \return whether the stream held a record.
bool printAll(std::istream& stream, const std::string& name, const std::filesystem::file_time_type* written,
              Report& report)
{
    const std::vector<BacktraceRecord> records = KoSymbolise::readBacktraces(stream);
    for (const BacktraceRecord& record : records)
    {
        report.print(record, written);
    }
    if (records.empty())
    {
        std::fprintf(stderr, "ko_symbolise: no backtrace in %s\n", name.c_str());
    }
    return !records.empty();
}

bool printFile(const std::string& path, Report& report)
{
    if (path == STANDARD_INPUT)
    {
        return printAll(std::cin, "standard input", nullptr, report);
    }
    std::ifstream stream(path, std::ios::binary);
    std::error_code error;
    const std::filesystem::file_time_type written = std::filesystem::last_write_time(path, error);
    if (!stream || error)
    {
        std::fprintf(stderr, "ko_symbolise: cannot read %s\n", path.c_str());
        return false;
    }
    return printAll(stream, path, &written, report);
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app(
        "Turns the addresses of backtrace files into functions, files and lines, by the memory map in "
        "each record and the debug information of the objects in it.");
    declareOptions(app, options);
    CLI11_PARSE(app, argc, argv);

    Report report(options);
    bool areAllPrinted = true;
    for (const std::string& file : options.files)
    {
        areAllPrinted = printFile(file, report) && areAllPrinted;
    }
    return areAllPrinted && std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
