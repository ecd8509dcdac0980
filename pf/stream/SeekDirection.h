#pragma once

/// Where the offset of a seek counts from. The numbers are part of the interface; functions that take a
/// direction refuse every other value.
enum SeekDirection : int
{
    SEEK_DIRECTION_BEGIN = 0,   ///< from the first byte
    SEEK_DIRECTION_CURRENT = 1, ///< from the current position
    SEEK_DIRECTION_END = 2,     ///< from behind the last byte
    SEEK_DIRECTION_NONE = 3     ///< no position at all; never succeeds
};
