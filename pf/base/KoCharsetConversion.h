#pragma once

/// \file
/// Conversion between the library's texts and three other encodings: ISO 8859-1, ISO 8859-15 and UTF-16.
///
///     const CKoString name = KoConvertFrom8859_1(bytes, count);
///     char line[80];
///     KoConvertTo8859_15(name, line, sizeof(line), '?');
///
/// All functions may be called from any thread; each takes time in proportion to its input.

#include "pf/base/CKoString.h"
#include "pf/base/KoExport.h"

/// What the bytes of a single-byte character set are in UTF-8, by the byte.
struct SKoConvTable
{
    /// A character in UTF-8.
    struct SEntry
    {
        unsigned char length;  ///< 1 to 3
        unsigned char utf8[3]; ///< zero beyond the length
    };

    SEntry entries[256];
};

/// The way back: sequences of UTF-8 and the bytes they become. First the 128 of one byte by their value, then
/// those of two bytes in ascending order, then those of three.
struct SKoReverseConvTable
{
    /// A character in UTF-8 and its byte.
    struct SEntry
    {
        unsigned char utf8[3]; ///< zero beyond the length
        unsigned char target;
    };

    unsigned char lastOneByteIndex; ///< always 127
    unsigned char lastTwoByteIndex; ///< entries behind it have three bytes
    SEntry entries[256];
};

/// Converts `count` bytes of ISO 8859-1, see convertStringToUTF8.
KO_EXPORT CKoString KoConvertFrom8859_1(const char* text, unsigned int count);

/// Converts `count` bytes of ISO 8859-15, see convertStringToUTF8.
KO_EXPORT CKoString KoConvertFrom8859_15(const char* text, unsigned int count);

/// Converts to ISO 8859-1, see convertUTF8ToString.
KO_EXPORT int KoConvertTo8859_1(const CKoString& text, char* buffer, unsigned int size, char replacement);

/// Converts to ISO 8859-15, see convertUTF8ToString.
KO_EXPORT int KoConvertTo8859_15(const CKoString& text, char* buffer, unsigned int size, char replacement);

/// Converts `count` bytes of a single-byte character set. Zero bytes are dropped; they do not end the text.
/// \return a string whose capacity is what the bytes need by the table. A null text or table, or a size that
/// no string can have, is reported and gives the empty string.
KO_EXPORT CKoString convertStringToUTF8(const SKoConvTable* table, const char* text, unsigned int count);

/// Converts to a single-byte character set, one byte for each character. What the table does not hold
/// becomes `replacement`; only the encoding that the table holds counts, not a longer one of the same
/// character.
/// \param buffer takes at most `size` - 1 bytes and a zero byte; what lies behind that stays.
/// \return the bytes converted; `size` when the text was cut; 0 for a null buffer or a size of 0, which touch
/// nothing. A size beyond the largest int counts as that.
KO_EXPORT int convertUTF8ToString(const SKoReverseConvTable& table, const CKoString& text, char* buffer,
                                  unsigned int size, char replacement);

/// Converts a text and the zero behind it to UTF-16.
/// \param count the units that fit into `buffer`; on success the units written, the zero included.
/// \return false for a null buffer, a sequence that Unicode does not allow, or a buffer that is full. The
/// buffer then holds the units before, and `count` is unchanged.
KO_EXPORT bool convertUTF8ToUTF16(const CKoString& text, unsigned short* buffer, unsigned int& count);

/// Appends `count` units of UTF-16 to `target`. Surrogates without a partner are encoded by themselves; zero
/// units are dropped.
/// \return false for null units, and for a high surrogate as the last unit: the target then has the
/// characters before it. Also false, with a report and the target unchanged, for more text than fits a
/// string.
KO_EXPORT bool convertUTF16ToUTF8(const unsigned short* units, CKoString& target, unsigned int count);
