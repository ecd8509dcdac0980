#pragma once

/// Flags of memory mappings that the host does not have, because it behaves that way without being asked.
namespace KoPlatform
{

/// Pages are provided when they are first touched.
constexpr int MAP_LAZY = 0;

/// Changes in a shared mapping are not written to the file at once.
constexpr int MAP_NOSYNCFILE = 0;

} // namespace KoPlatform
