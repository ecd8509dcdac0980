#pragma once

#include <cerrno>

namespace KoPlatform
{

/// Makes a call that returns -1 with `errno` on failure, again and again while it is interrupted by a signal.
/// Not for `close`, which must never be repeated.
template <class Call>
inline auto repeatInterrupted(Call call) -> decltype(call())
{
    auto result = call();
    while (result == -1 && errno == EINTR)
    {
        result = call();
    }
    return result;
}

} // namespace KoPlatform
