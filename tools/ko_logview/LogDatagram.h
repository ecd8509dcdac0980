#pragma once

#include <optional>
#include <string>
#include <string_view>

/// What a logging process sends: `<PRI>program[pid]: (opcode) line`, where PRI carries the severity in its
/// low three bits and the opcode is `code | (module << 20)`.
namespace KoLogView
{

/// Severities by value, most severe first.
constexpr int SEVERITY_COUNT = 8;

/// The name of a severity 0 to 7.
const char* severityName(int severity);

/// The value of a severity given by name (in any case) or by number; nothing for any other text.
std::optional<int> severityFromText(const std::string& text);

struct LogDatagram
{
    int severity = 0;
    unsigned int module = 0;
    unsigned int code = 0;
    std::string text; ///< printable: control characters and bytes outside ASCII are escaped, UTF-8 is kept
};

/// Takes a datagram apart; nothing when it does not have the form above.
std::optional<LogDatagram> parseDatagram(std::string_view bytes);

/// Bytes as text that is safe on a terminal: control characters appear as \xNN, valid UTF-8 stays.
std::string printable(std::string_view bytes);

} // namespace KoLogView
