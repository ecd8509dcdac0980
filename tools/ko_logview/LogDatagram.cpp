#include "tools/ko_logview/LogDatagram.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <strings.h>

namespace KoLogView
{

namespace
{

const char* const SEVERITY_NAMES[SEVERITY_COUNT] = {"Shutdown", "Critical", "Error",  "Warning",
                                                    "Notice",   "Info",     "Debug1", "Debug2"};

constexpr unsigned int MODULE_SHIFT = 20;
constexpr unsigned int CODE_MASK = (1U << MODULE_SHIFT) - 1U;

/// Consumes a number up to its closing character.
std::optional<std::int64_t> takeNumber(std::string_view& rest, char closing)
{
    std::int64_t value = 0;
    const char* const end = rest.data() + rest.size();
    const std::from_chars_result result = std::from_chars(rest.data(), end, value);
    if (result.ec != std::errc() || result.ptr == end || *result.ptr != closing)
    {
        return std::nullopt;
    }
    rest.remove_prefix(static_cast<std::size_t>(result.ptr - rest.data()) + 1);
    return value;
}

/// Consumes everything up to and including a separator.
bool skipPast(std::string_view& rest, std::string_view separator)
{
    const std::size_t at = rest.find(separator);
    if (at == std::string_view::npos)
    {
        return false;
    }
    rest.remove_prefix(at + separator.size());
    return true;
}

bool isNumber(std::string_view text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// Consumes `program[pid]: (`; the name may contain anything that does not look like the rest.
bool takeSender(std::string_view& rest, LogDatagram& datagram)
{
    const std::size_t end = rest.find("]: (");
    const std::size_t bracket = rest.rfind('[', end);
    if (end == std::string_view::npos || bracket == std::string_view::npos)
    {
        return false;
    }
    const std::string_view process = rest.substr(bracket + 1, end - bracket - 1);
    datagram.program = printable(rest.substr(0, bracket));
    datagram.process = process;
    rest.remove_prefix(end + std::strlen("]: ("));
    return isNumber(process);
}

/// Whether any entry satisfies the condition, or there is none.
template <class T, class Condition>
bool acceptsAny(const std::vector<T>& entries, Condition condition)
{
    return entries.empty() || std::any_of(entries.begin(), entries.end(), condition);
}

bool isContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// The length of the character at the front when it is a whole sequence of two to four bytes that is no
/// control character; else 0.
std::size_t sequenceLength(std::string_view bytes)
{
    const auto lead = static_cast<unsigned char>(bytes.front());
    const std::size_t length = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (length == 0 || length > bytes.size())
    {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i)
    {
        if (!isContinuation(bytes[i]))
        {
            return 0;
        }
    }
    const bool isControl = lead == 0xC2 && static_cast<unsigned char>(bytes[1]) < 0xA0;
    return isControl ? 0 : length;
}

void appendEscaped(std::string& result, char byte)
{
    static const char DIGITS[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    result += "\\x";
    result += DIGITS[value >> 4U];
    result += DIGITS[value & 15U];
}

} // namespace

const char* severityName(int severity)
{
    return SEVERITY_NAMES[severity & 7];
}

std::optional<int> severityFromText(const std::string& text)
{
    for (int severity = 0; severity < SEVERITY_COUNT; ++severity)
    {
        if (strcasecmp(text.c_str(), SEVERITY_NAMES[severity]) == 0 || text == std::to_string(severity))
        {
            return severity;
        }
    }
    return std::nullopt;
}

std::optional<LogDatagram> parseDatagram(std::string_view bytes)
{
    std::string_view rest = bytes;
    if (!skipPast(rest, "<"))
    {
        return std::nullopt;
    }
    const std::optional<std::int64_t> priority = takeNumber(rest, '>');
    LogDatagram datagram;
    if (bytes.front() != '<' || !priority || *priority < 0 || !takeSender(rest, datagram))
    {
        return std::nullopt;
    }
    const std::optional<std::int64_t> opcode = takeNumber(rest, ')');
    if (!opcode || rest.empty() || rest.front() != ' ')
    {
        return std::nullopt;
    }
    rest.remove_prefix(1);
    const auto word = static_cast<std::uint32_t>(*opcode);
    datagram.severity = static_cast<int>(*priority & 7);
    datagram.module = word >> MODULE_SHIFT;
    datagram.code = word & CODE_MASK;
    datagram.text = printable(rest);
    return datagram;
}

bool LogFilter::accepts(const LogDatagram& datagram) const
{
    return datagram.severity <= leastSevere &&
           acceptsAny(modules, [&](unsigned int module) { return module == datagram.module; }) &&
           acceptsAny(codes, [&](unsigned int code) { return code == datagram.code; }) &&
           acceptsAny(processes, [&](const std::string& process)
                      { return process == datagram.program || process == datagram.process; }) &&
           acceptsText(datagram.text);
}

bool LogFilter::acceptsForeign(const std::string& text) const
{
    return modules.empty() && codes.empty() && processes.empty() && acceptsText(text);
}

bool LogFilter::acceptsText(const std::string& text) const
{
    const auto isPart = [&](const std::string& part) { return text.find(part) != std::string::npos; };
    return acceptsAny(texts, isPart) && std::none_of(notTexts.begin(), notTexts.end(), isPart);
}

std::string printable(std::string_view bytes)
{
    std::string result;
    while (!bytes.empty())
    {
        const auto byte = static_cast<unsigned char>(bytes.front());
        const std::size_t length = byte >= 0x20 && byte < 0x7F ? 1 : sequenceLength(bytes);
        if (length == 0)
        {
            appendEscaped(result, bytes.front());
            bytes.remove_prefix(1);
            continue;
        }
        result.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return result;
}

} // namespace KoLogView
