#pragma once

/// \file
/// Escaping of text for XML: the five characters that mean something there become entities.

#include <cstddef>

namespace KoPrivate
{

/// Characters that copyEscaped writes.
unsigned long long escapedLength(const char* text, std::size_t count);

/// Writes the escaped text to `target`, which has room for exactly escapedLength and does not overlap it.
/// \return the position behind it.
char* copyEscaped(char* target, const char* text, std::size_t count);

} // namespace KoPrivate
