#include "tools/ko_logview/LogDatagram.h"

#include <charconv>
#include <cstddef>
#include <cstdint>

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
    if (bytes.front() != '<' || !priority || *priority < 0 || !skipPast(rest, "]: ("))
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
    return LogDatagram{static_cast<int>(*priority & 7), word >> MODULE_SHIFT, word & CODE_MASK,
                       printable(rest)};
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
