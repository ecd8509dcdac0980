#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
    std::string program; ///< printable like the text
    std::string process; ///< its number in decimal digits
    std::string text;    ///< printable: control characters and bytes outside ASCII are escaped, UTF-8 is kept
};

/// Takes a datagram apart; nothing when it does not have the form above.
std::optional<LogDatagram> parseDatagram(std::string_view bytes);

/// Which lines to show: those that satisfy every condition. A list is satisfied by any of its entries, and by
/// every line when it is empty.
struct LogFilter
{
    int leastSevere = SEVERITY_COUNT - 1;
    std::vector<unsigned int> modules;
    std::vector<unsigned int> codes;
    std::vector<std::string> processes; ///< names of programs or numbers of processes
    std::vector<std::string> texts;     ///< parts of the text
    std::vector<std::string> notTexts;  ///< parts that the text must not have

    bool accepts(const LogDatagram& datagram) const;
    /// Of something that is no line of a log only the text is known.
    bool acceptsForeign(const std::string& text) const;

private:
    bool acceptsText(const std::string& text) const;
};

/// Bytes as text that is safe on a terminal: control characters appear as \xNN, valid UTF-8 stays.
std::string printable(std::string_view bytes);

} // namespace KoLogView
