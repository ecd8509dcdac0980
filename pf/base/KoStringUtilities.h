#pragma once

/// \file
/// Functions on whole texts: upper and lower case of every script, and cutting a text into pieces.
///
///     KoStringUtilities::toUpper(street);                        // a sharp s becomes SS
///     KoStringUtilities::split(fields, line, CKoString(";,"), false);

#include "pf/base/CKoString.h"
#include "pf/base/KoExport.h"
#include "pf/containers/TKoVector.h"

namespace KoStringUtilities
{

/// One direction of case mapping.
///
/// Each part is ordered by its first field, ranges do not overlap, and a part that is not there is a null
/// pointer with a count of 0. A character is looked up in the three 16-bit parts when it is at most FFFF, in
/// the 32-bit parts otherwise: first in the simple part, then in the ranges, last in the special part. A
/// table owns nothing; what it points at must outlive its use.
struct SKoCaseMappingTable
{
    /// A character that maps to one other.
    struct SSimple16
    {
        unsigned short from;
        unsigned short to;
    };

    /// The characters from `start` on map to those from `target` on, one by one.
    struct SRange16
    {
        unsigned short start;
        unsigned short length;
        unsigned short target;
    };

    /// A character that maps to `count` characters.
    struct SSpecial16
    {
        unsigned short from;
        unsigned short count;
        const unsigned short* replacement;
    };

    /// The same three for characters above FFFF.
    struct SSimple32
    {
        unsigned int from;
        unsigned int to;
    };

    /// As SRange16.
    struct SRange32
    {
        unsigned int start;
        unsigned int length;
        unsigned int target;
    };

    /// As SSpecial16.
    struct SSpecial32
    {
        unsigned int from;
        unsigned int count;
        const unsigned int* replacement;
    };

    int simpleCount16;
    const SSimple16* simple16;
    int rangeCount16;
    const SRange16* range16;
    int specialCount16;
    const SSpecial16* special16;
    int simpleCount32;
    const SSimple32* simple32;
    int rangeCount32;
    const SRange32* range32;
    int specialCount32;
    const SSpecial32* special32;
};

/// The letters of the Basic Multilingual Plane as Unicode 4.0 maps them, without conditions of language or
/// context. Upper case includes the letters that become several.
extern KO_EXPORT const SKoCaseMappingTable sToUpperCaseMappingTable;
extern KO_EXPORT const SKoCaseMappingTable sToLowerCaseMappingTable;

/// Maps every character of `text` to upper case. See doCaseMapping.
KO_EXPORT void toUpper(CKoString& text);

/// Maps every character of `text` to lower case. See doCaseMapping.
KO_EXPORT void toLower(CKoString& text);

/// Maps every character of `text` by a table; characters that it does not hold keep their bytes.
///
/// A text in which nothing is mapped stays as it is, shared or not. Otherwise the text has a block of its own
/// afterwards: the one it had when all characters keep their size, else one that holds the longest state of
/// the text on the way, and no smaller than the one before unless that was shared. A zero byte within the
/// text ends the mapping, as it ends every walk over characters. Takes linear time.
KO_EXPORT void doCaseMapping(CKoString& text, const SKoCaseMappingTable& table);

/// Fills `parts` with the pieces of `text` between separators. Each character of `separators` is one; without
/// any the text is a single piece. Pieces may be empty, also the last one, unless `skipEmpty` is set. Both
/// texts end at a zero byte within them.
/// \param parts is cleared first; `text` and `separators` may live in it.
KO_EXPORT void split(TKoVector<CKoString>& parts, const CKoString& text, const CKoString& separators,
                     bool skipEmpty);

} // namespace KoStringUtilities
