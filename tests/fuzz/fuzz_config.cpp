// Parses an input as a configuration file and compares what the callbacks of its sections "net" and "" get
// with the plainest rules. The first byte says after how many lines a callback ends the parse.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "pf/util/CKoConfigFileParser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace
{

constexpr unsigned short NET = 1;
constexpr unsigned short NAMELESS = 2;

/// What arrives, as "id text", up to a number of lines.
class Lines final : public CKoConfigFileParser::ICallback
{
public:
    explicit Lines(std::size_t limit)
        : m_limit(limit)
    {
    }

    bool processConfigFileEntry(unsigned short sectionId, const char* line) override
    {
        lines.push_back(std::to_string(sectionId) + ' ' + line);
        return lines.size() < m_limit;
    }

    std::vector<std::string> lines;

private:
    std::size_t m_limit;
};

/// A line or a piece of one without its comment and the blanks behind it. A zero byte ends it.
std::string contentOf(const std::string& piece)
{
    std::string content;
    for (const char c : std::string(piece.c_str()))
    {
        const bool isEscaped = c == '#' && !content.empty() && content.back() == '\\';
        if (c == '#' && !isEscaped)
            break;
        if (isEscaped)
            content.pop_back();
        content += c;
    }
    while (!content.empty() && static_cast<unsigned char>(content.back()) <= ' ')
        content.pop_back();
    return content;
}

unsigned short sectionOf(const std::string& header)
{
    const std::size_t end = header.find(']');
    if (end == std::string::npos)
        return 0;
    const std::string name = header.substr(1, end - 1);
    return name == "net" ? NET : name.empty() ? NAMELESS : 0;
}

void parsePlainly(const std::string& text, Lines& lines)
{
    unsigned short section = 0;
    for (std::size_t at = 0; at < text.size();)
    {
        const std::size_t lineEnd = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::size_t end = std::min(lineEnd, at + CKoConfigFileParser::MAX_LINE);
        const std::string content = contentOf(text.substr(at, end - at));
        at = end;
        if (!content.empty() && content.front() == '[')
            section = sectionOf(content);
        else if (!content.empty() && section != 0 && !lines.processConfigFileEntry(section, content.c_str()))
            return;
    }
}

/// A file in memory; its name leads to it anew at each opening.
class MemoryFile
{
public:
    explicit MemoryFile(const std::string& content)
        : m_descriptor(memfd_create("config", 0))
    {
        if (write(m_descriptor, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            std::abort();
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(m_descriptor); }

private:
    int m_descriptor;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t limit = data[0] == 0 ? size : data[0];
    const MemoryFile file(text);
    Lines parsed(limit);
    CKoConfigFileParser parser;
    const bool isOpened = parser.addSectionCallback("net", NET, &parsed) &&
                          parser.addSectionCallback("", NAMELESS, &parsed) &&
                          parser.parse(file.path().c_str());
    Lines expected(limit);
    parsePlainly(text, expected);
    if (!isOpened || parsed.lines != expected.lines)
    {
        std::fprintf(stderr, "%zu lines instead of %zu\n", parsed.lines.size(), expected.lines.size());
        std::abort();
    }
    return 0;
}
