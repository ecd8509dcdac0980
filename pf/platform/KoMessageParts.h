#pragma once

#include "pf/platform/KoLane.h"

#include <cstddef>
#include <sys/uio.h>

namespace KoPlatform
{

/// Checks a list of message parts that a caller gave and adds up their lengths.
/// \return 0, or the error number: `EINVAL` for a negative count, a null list or a null part with a length;
/// `EMSGSIZE` when the sum is beyond INT_MAX.
int measureParts(const iovec* parts, int partCount, SLaneParts& measured) noexcept;

/// The same for one block of bytes; `part` must live as long as what is measured.
int measureBlock(const void* data, int bytes, iovec& part, SLaneParts& measured) noexcept;

/// Copies as much as both have room for. \return how many bytes that was.
std::size_t copyParts(const SLaneParts& to, const SLaneParts& from) noexcept;

} // namespace KoPlatform
