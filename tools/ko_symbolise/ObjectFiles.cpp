#include "tools/ko_symbolise/ObjectFiles.h"

#include <filesystem>
#include <string_view>
#include <system_error>

namespace KoSymbolise
{

namespace
{

/// What the kernel adds to the path of a file that was removed or replaced while it was in use.
constexpr std::string_view DELETED = " (deleted)";

std::string withoutMark(const std::string& mapPath)
{
    const bool isMarked =
        mapPath.size() > DELETED.size() &&
        mapPath.compare(mapPath.size() - DELETED.size(), DELETED.size(), DELETED.data()) == 0;
    return isMarked ? mapPath.substr(0, mapPath.size() - DELETED.size()) : mapPath;
}

} // namespace

std::vector<std::string> ObjectFiles::candidates(const std::string& mapPath) const
{
    const std::string path = withoutMark(mapPath);
    if (m_root.empty())
    {
        return {path};
    }
    return {m_root + "/" + path, m_root + "/" + std::filesystem::path(path).filename().string()};
}

std::optional<std::string> ObjectFiles::find(const std::string& mapPath) const
{
    for (const std::string& candidate : candidates(mapPath))
    {
        std::error_code ignored;
        if (std::filesystem::is_regular_file(candidate, ignored))
        {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace KoSymbolise
