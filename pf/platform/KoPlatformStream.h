#pragma once

#include <cstdio>

/// Buffered streams of the C library.
namespace KoPlatform
{

/// Opens a file like the C library's `fopen`, for streams that lose nothing to a signal: the host's own drop
/// what is in the buffer when the write of it is interrupted, ours write on. A read that is interrupted is a
/// failed read with `EINTR`, as ever; nothing that was read before is lost.
///
/// The file is opened as KoPlatform::open does. The stream is the C library's in every other way and closed
/// by `fclose`. Any thread may call it.
/// \return the stream, or null with `errno`: `EINVAL` for a mode that is none.
FILE* openStream(const char* path, const char* mode);

} // namespace KoPlatform
