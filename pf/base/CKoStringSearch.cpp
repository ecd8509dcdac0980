#include "pf/base/CKoString.h"
#include "pf/base/KoByteSearch.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace
{

bool isMatch(const char* position, const char* end, const CKoString& pattern)
{
    return static_cast<std::size_t>(end - position) >= pattern.byteLength() &&
           std::memcmp(position, pattern.c_str(), pattern.byteLength()) == 0;
}

// A search goes from character to character and ends at the first zero byte. Bytes that match and begin like
// a character are therefore a match, unless a zero lies on the way.

const char* findForward(const char* from, const char* end, const CKoString& pattern)
{
    const char* const found = KoPrivate::findBytesBeforeZero(from, static_cast<std::size_t>(end - from),
                                                             pattern.c_str(), pattern.byteLength());
    return found != nullptr ? found : end;
}

const char* findBackward(const char* first, const char* from, const char* end, const CKoString& pattern)
{
    const std::size_t behind =
        std::min<std::size_t>(pattern.byteLength(), static_cast<std::size_t>(end - from));
    const std::size_t length = static_cast<std::size_t>(from - first) + behind;
    const char* const found = KoPrivate::findLastBytes(first, length, pattern.c_str(), pattern.byteLength());
    if (found == nullptr)
    {
        return end;
    }
    const std::size_t passed = static_cast<std::size_t>(from - found) + 1U;
    return std::memchr(found, '\0', passed) == nullptr ? found : end;
}

} // namespace

CKoString::const_iterator CKoString::findString(const_iterator from, const CKoString& pattern,
                                                bool forward) const
{
    if (!contains(from) || pattern.isEmpty())
    {
        return end();
    }
    const char* const last = end().address();
    const char* start = from.address();
    if (!forward && start == last && !isEmpty())
    {
        KoPrivate::stepBack(start, c_str());
    }
    if (KoPrivate::isContinuation(*pattern.c_str()))
    {
        // No character begins like that; only the position itself may be inside one.
        return isMatch(start, last, pattern) ? const_iterator(start) : end();
    }
    return const_iterator(forward ? findForward(start, last, pattern)
                                  : findBackward(c_str(), start, last, pattern));
}

CKoString::const_iterator CKoString::find(const CKoString& pattern) const
{
    return findString(begin(), pattern, true);
}

CKoString::const_iterator CKoString::find(const CKoString& pattern, const const_iterator& from) const
{
    return findString(from, pattern, true);
}
