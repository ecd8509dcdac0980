#include "tools/ko_symbolise/BacktraceFile.h"

#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

namespace KoSymbolise
{

namespace
{

constexpr std::string_view INFORMATION = "[QNX backtrace] INFO - ";
constexpr std::string_view LAST_HEADER_LINE = "usable for analysis with proper project MAP file";
constexpr std::string_view LINE_BEFORE_LAST =
    "data below is the actual callstack created with QNX libbacktrace.so";

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

/// Consumes the hexadecimal digits at the front, eight at least, and the character after them.
std::optional<std::uint64_t> takeAddress(std::string_view& rest, char closing)
{
    constexpr std::ptrdiff_t LEAST_DIGITS = 8;
    std::uint64_t value = 0;
    const char* const end = rest.data() + rest.size();
    const std::from_chars_result result = std::from_chars(rest.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr - rest.data() < LEAST_DIGITS || result.ptr == end ||
        *result.ptr != closing)
    {
        return std::nullopt;
    }
    rest.remove_prefix(static_cast<std::size_t>(result.ptr - rest.data()) + 1);
    return value;
}

/// The line "address address ... "; empty for any other line.
std::vector<std::uint64_t> parseAddresses(std::string_view line)
{
    std::vector<std::uint64_t> addresses;
    while (!line.empty())
    {
        const std::optional<std::uint64_t> address = takeAddress(line, ' ');
        if (!address)
        {
            return {};
        }
        addresses.push_back(*address);
    }
    return addresses;
}

/// The line "begin-end path".
std::optional<MapEntry> parseMapEntry(std::string_view line)
{
    const std::optional<std::uint64_t> begin = takeAddress(line, '-');
    const std::optional<std::uint64_t> end = begin ? takeAddress(line, ' ') : std::nullopt;
    if (!end || *end <= *begin || line.empty())
    {
        return std::nullopt;
    }
    return MapEntry{*begin, *end, std::string(line)};
}

/// Sorts the lines into records.
class Reader
{
public:
    void add(const std::string& line)
    {
        if (startsWith(line, INFORMATION))
        {
            m_records.emplace_back();
            m_records.back().information = line.substr(INFORMATION.size());
            m_inHeader = true;
        }
        else if (!m_records.empty())
        {
            m_inHeader ? addToHeader(line) : addToBody(line);
        }
    }

    std::vector<BacktraceRecord> takeRecords() { return std::move(m_records); }

private:
    void addToHeader(const std::string& line)
    {
        m_inHeader = line != LAST_HEADER_LINE;
        if (m_inHeader && !line.empty() && line != LINE_BEFORE_LAST)
        {
            m_records.back().header.push_back(line);
        }
    }

    void addToBody(const std::string& line)
    {
        BacktraceRecord& record = m_records.back();
        if (const std::optional<MapEntry> entry = parseMapEntry(line))
        {
            record.map.push_back(*entry);
        }
        else if (record.map.empty())
        {
            const std::vector<std::uint64_t> addresses = parseAddresses(line);
            record.addresses.insert(record.addresses.end(), addresses.begin(), addresses.end());
        }
    }

    std::vector<BacktraceRecord> m_records;
    bool m_inHeader = false;
};

} // namespace

std::vector<BacktraceRecord> readBacktraces(std::istream& file)
{
    Reader reader;
    for (std::string line; std::getline(file, line);)
    {
        reader.add(line);
    }
    return reader.takeRecords();
}

} // namespace KoSymbolise
