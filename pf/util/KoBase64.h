#pragma once

/// \file
/// Base64 with the alphabet of RFC 4648, padded with "=" and without line breaks; decoding skips line breaks
/// between groups. Everything happens in the caller's buffers; any thread may call any function.
///
///     char text[4 * ((COUNT + 2) / 3) + 1];
///     KoBase64::encode(data, COUNT, text, sizeof(text));

#include "pf/base/KoExport.h"

namespace KoBase64
{

/// The 64 characters in the order of their values.
KO_EXPORT extern const char b64str_table[65];

/// Writes four characters for each three bytes begun, and a terminating zero where room is left: a caller
/// that wants it gives 4 * ((count + 2) / 3) + 1 characters of room. Nothing is written beyond `outSize`
/// characters; what does not fit is cut. A null pointer is reported as an assertion and writes nothing.
KO_EXPORT void encode(const unsigned char* data, unsigned int count, char* out, unsigned int outSize);

/// Decodes a zero-terminated text in groups of four characters. A character outside the alphabet in one of
/// the last three places of a group ends the decoding: in the second or third place the group counts as one
/// byte, in the fourth as two; characters that a last group lacks are such characters. In the first place it
/// decodes as 0. Carriage returns and line feeds after a group are skipped. \param outSize at most so many
/// bytes are written. A group that fills the buffer before its third byte counts with all that was written.
/// Bytes of a padded group that do not count may be written too. \return the bytes that count. A null pointer
/// or no room is reported as an assertion and gives 0.
KO_EXPORT unsigned int decode(const char* text, unsigned char* out, unsigned int outSize);

/// An upper bound of what decode gives: three bytes for four characters, those of the padding at the end not
/// counted. A null pointer is reported as an assertion and gives 0.
KO_EXPORT unsigned int calcDecodeLength(const char* text);

/// The place of a character in the alphabet; 0 for any other, "=" included.
KO_EXPORT int value(char c);

/// Whether a character is in the alphabet. The terminating zero is not.
KO_EXPORT bool isbase64(char c);

} // namespace KoBase64
