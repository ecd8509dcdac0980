#include "Source.h"

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace
{

constexpr double KIB_PER_MIB = 1024.0;

std::uint64_t thousandths(double number)
{
    return static_cast<std::uint64_t>(std::llround(number * 1000.0));
}

/// The share of the processors' time that was not idle since the text before.
class BusyShare
{
public:
    std::optional<std::uint64_t> operator()(const std::string& text)
    {
        std::istringstream fields(text);
        std::string label;
        fields >> label;
        std::uint64_t total = 0;
        std::uint64_t idle = 0;
        std::uint64_t ticks = 0;
        for (int field = 0; field < FIELDS && fields >> ticks; ++field)
        {
            total += ticks;
            idle += field == IDLE || field == WAITS_FOR_IO ? ticks : 0;
        }
        const std::uint64_t passed = total - m_total;
        const std::uint64_t idled = idle - m_idle;
        m_total = total;
        m_idle = idle;
        // The kernel corrects its idle time downwards now and then.
        const bool isBusyKnown = passed > 0 && idled <= passed;
        return isBusyKnown
                   ? thousandths(100.0 * static_cast<double>(passed - idled) / static_cast<double>(passed))
                   : 0;
    }

private:
    static constexpr int IDLE = 3;
    static constexpr int WAITS_FOR_IO = 4;
    static constexpr int FIELDS = 8; ///< the time of guests, which follows, is counted in them already

    std::uint64_t m_total = 0;
    std::uint64_t m_idle = 0;
};

std::optional<std::uint64_t> availableMemory(const std::string& text)
{
    const std::string label = "MemAvailable:";
    const std::size_t position = text.find(label);
    if (position == std::string::npos)
    {
        return std::nullopt;
    }
    return thousandths(std::strtod(text.c_str() + position + label.size(), nullptr) / KIB_PER_MIB);
}

std::optional<std::uint64_t> firstNumber(const std::string& text)
{
    double number = 0;
    if (!(std::istringstream(text) >> number))
    {
        return std::nullopt;
    }
    return thousandths(number);
}

} // namespace

std::optional<std::uint64_t> Source::read() const
{
    std::ifstream file(path.c_str());
    std::ostringstream text;
    text << file.rdbuf();
    return file.is_open() ? evaluate(text.str()) : std::nullopt;
}

Source::Evaluate Source::evaluation(std::string_view name)
{
    if (name == "busy")
    {
        return BusyShare();
    }
    if (name == "available")
    {
        return availableMemory;
    }
    return name == "first" ? Evaluate(firstNumber) : Evaluate();
}
