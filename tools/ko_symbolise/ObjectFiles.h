#pragma once

#include <optional>
#include <string>
#include <vector>

namespace KoSymbolise
{

/// Finds the files of a memory map, which may have been written on another machine.
class ObjectFiles
{
public:
    /// Without a root a path means what it says. With a root the file is looked for at that path below the
    /// root, and then by its mere name in the root, and nowhere else.
    explicit ObjectFiles(std::string root)
        : m_root(std::move(root))
    {
    }

    /// The file of a path in a map; nothing when it is not there.
    std::optional<std::string> find(const std::string& mapPath) const;

private:
    std::vector<std::string> candidates(const std::string& mapPath) const;

    std::string m_root;
};

} // namespace KoSymbolise
