#include "Settings.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "pf/util/CKoConfigFileParser.h"

namespace
{

enum Section : unsigned short
{
    STATION,
    SOURCES
};

constexpr unsigned int LONGEST_RUN_S = 86400;
constexpr unsigned int LONGEST_PERIOD_MS = 3600000;

std::string_view trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Takes the part before the separator off the text; all of it if there is none.
std::string_view takePart(std::string_view& text, char separator)
{
    const std::size_t end = text.find(separator);
    const std::string_view part = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    return part;
}

/// \return whether the text is a number from 1 to `most`, which is stored then.
bool toNumber(std::string_view text, unsigned int most, unsigned int& number)
{
    unsigned int read = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, read);
    const bool isNumber = result.ec == std::errc() && result.ptr == end && read >= 1 && read <= most;
    number = isNumber ? read : number;
    return isNumber;
}

/// Fills the settings line by line.
class Reader final : public CKoConfigFileParser::ICallback
{
public:
    Reader(Settings& settings, const std::string& path)
        : m_settings(settings)
        , m_path(path)
    {
    }

    /// \return whether the file could be opened; if not, the reason is in `errno`.
    bool run()
    {
        CKoConfigFileParser parser;
        parser.addSectionCallback("station", STATION, this);
        parser.addSectionCallback("sources", SOURCES, this);
        return parser.parse(m_path.c_str(), m_line);
    }

    bool processConfigFileEntry(unsigned short section, const char* line) override
    {
        const char* const fault = section == STATION ? takeSetting(line) : takeSource(line);
        if (fault != nullptr)
        {
            std::fprintf(stderr, "%s:%u: %s: %s\n", m_path.c_str(), m_line, fault, line);
        }
        return true;
    }

private:
    // Both return what is wrong with the line; null if it was taken.
    const char* takeSetting(std::string_view line);
    const char* takeSource(std::string_view line);

    Settings& m_settings;
    const std::string& m_path;
    unsigned int m_line = 0;
};

const char* Reader::takeSetting(std::string_view line)
{
    const std::string_view key = takePart(line, '=');
    const std::string value(trimmed(line));
    if (value.empty())
    {
        return "a setting without a value";
    }
    if (key == "seconds")
    {
        return toNumber(value, LONGEST_RUN_S, m_settings.seconds) ? nullptr
                                                                  : "no number of seconds up to a day";
    }
    if (key == "directory")
    {
        m_settings.directory = value;
        return nullptr;
    }
    if (key == "records")
    {
        m_settings.records = value.c_str();
        return nullptr;
    }
    return "an unknown setting";
}

const char* Reader::takeSource(std::string_view line)
{
    const CKoString name(std::string(takePart(line, ';')).c_str());
    const CKoString path(std::string(takePart(line, ';')).c_str());
    const std::string_view period = takePart(line, ';');
    const CKoString unit(std::string(takePart(line, ';')).c_str());
    Source source{name, path, 0, unit, Source::evaluation(trimmed(line))};
    if (name.isEmpty() || path.isEmpty())
    {
        return "a source without a name or a file";
    }
    if (!toNumber(period, LONGEST_PERIOD_MS, source.periodMs))
    {
        return "no number of milliseconds up to an hour";
    }
    if (!source.evaluate)
    {
        return "an unknown way to find the number";
    }
    for (const Source& known : m_settings.sources)
    {
        if (known.name == name)
        {
            return "a source that is there already";
        }
    }
    m_settings.sources.push_back(source);
    return nullptr;
}

} // namespace

std::optional<Settings> Settings::read(const std::string& path)
{
    Settings settings;
    if (!Reader(settings, path).run())
    {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(errno));
        return std::nullopt;
    }
    return settings;
}
