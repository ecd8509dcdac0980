#pragma once

/// Substring search in bytes, forward and backward. Linear in the text for every pattern, without memory of
/// its own; ordinary texts are filtered many bytes at a time.

#include <cstddef>

namespace KoPrivate
{

/// The first occurrence of the pattern (not empty) in the text, or null.
const char* findBytes(const char* text, std::size_t length, const char* pattern, std::size_t patternLength);

/// As findBytes, but not beyond the first zero byte of the text.
const char* findBytesBeforeZero(const char* text, std::size_t length, const char* pattern,
                                std::size_t patternLength);

/// The last occurrence of the pattern (not empty) in the text, or null.
const char* findLastBytes(const char* text, std::size_t length, const char* pattern,
                          std::size_t patternLength);

} // namespace KoPrivate
