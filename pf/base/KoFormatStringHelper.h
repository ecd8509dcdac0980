#pragma once

/// \file
/// Formats for TKoFormatString, so that the template needs no formatting header.

#include "pf/base/KoExport.h"

#include <cstdarg>

namespace KoFormatStringHelper
{

/// Formats into a buffer of `size` bytes, zero-terminated when `size` is positive.
/// \return bytes that the whole output has, or -1 when it cannot be formed. Any thread; nothing is allocated.
KO_EXPORT int doVsnprintf(char* buffer, int size, const char* format, va_list arguments) KO_PRINTF(3, 0);

} // namespace KoFormatStringHelper
