#pragma once

/// \file
/// A short formatted text on the stack, for messages where nothing may be allocated. The text is cut to fit
/// and its encoding is not checked; CKoString::format does both with a heap block.
///
///     doAssert(__LINE__, "CKoThing", TKoFormatString<>("Index %u not valid!", index).c_str());

#include "pf/base/KoFormatStringHelper.h"

/// Holds N bytes, the terminating zero included. Filled once by its constructor.
template <unsigned int N = 256U>
class TKoFormatString
{
    static_assert(N > 0U && N <= 0x7FFFFFFFU, "the size must fit the formatter");

public:
    /// A null format, or one that cannot be formed, gives the empty text.
    explicit TKoFormatString(const char* format, ...) KO_PRINTF(2, 3)
    {
        m_text[0] = '\0';
        if (format == nullptr)
        {
            return;
        }
        va_list arguments;
        va_start(arguments, format);
        const int length = KoFormatStringHelper::doVsnprintf(m_text, static_cast<int>(N), format, arguments);
        va_end(arguments);
        if (length == -1)
        {
            m_text[0] = '\0';
        }
    }

    /// The zero-terminated text, as long as this object lives.
    const char* c_str() const { return m_text; }

private:
    char m_text[N];
};
