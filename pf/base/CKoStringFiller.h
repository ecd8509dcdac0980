#pragma once

#include "pf/base/CKoString.h"

namespace KoPrivate
{

/// What the converters need of a string whose text they write themselves: the block, made private, and the
/// counts, which are known without another look at the bytes.
class CKoStringFiller
{
public:
    static bool isShared(const CKoString& string) { return string.isShared(); }

    /// Makes the block the string's own with room for that many bytes; the text stays. A size that no block
    /// can have is reported. \return false then.
    static bool makePrivate(CKoString& string, unsigned long long capacity)
    {
        return string.makePrivate(capacity);
    }

    /// The text of a string whose block is its own.
    static char* text(CKoString& string) { return string.m_data->text(); }

    /// Sets both counts and the zero byte behind the text.
    static void setLength(CKoString& string, unsigned int bytes, unsigned int characters)
    {
        string.setLength(bytes, characters);
    }
};

} // namespace KoPrivate
