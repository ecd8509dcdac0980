#pragma once

namespace KoPlatform
{

/// The recorded priority of the calling thread, which its messages have. A lock and a few loads.
int callersPriority() noexcept;

} // namespace KoPlatform
