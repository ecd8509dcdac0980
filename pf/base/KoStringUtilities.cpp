#include "pf/base/KoStringUtilities.h"

#include <utility>

namespace KoStringUtilities
{

namespace
{

/// True for a character of `text`. A zero byte within it ends the look: no step leads beyond one.
bool isAmong(const CKoString& text, unsigned int character)
{
    CKoString::const_iterator at = text.begin();
    while (*at.address() != '\0' && *at != character)
    {
        ++at;
    }
    return *at.address() != '\0';
}

} // namespace

void toUpper(CKoString& text)
{
    doCaseMapping(text, sToUpperCaseMappingTable);
}

void toLower(CKoString& text)
{
    doCaseMapping(text, sToLowerCaseMappingTable);
}

void split(TKoVector<CKoString>& parts, const CKoString& text, const CKoString& separators, bool skipEmpty)
{
    // Collected apart, because both texts may live in the vector.
    TKoVector<CKoString> pieces;
    CKoString::const_iterator start = text.begin();
    unsigned int length = 0;
    const auto addPiece = [&]
    {
        if (!skipEmpty || length != 0U)
        {
            pieces.push_back(text.getMid(start, length));
        }
    };
    for (CKoString::const_iterator at = text.begin(); *at.address() != '\0';)
    {
        const unsigned int character = *at;
        ++at;
        if (!isAmong(separators, character))
        {
            ++length;
            continue;
        }
        addPiece();
        start = at;
        length = 0;
    }
    addPiece();
    parts = std::move(pieces);
}

} // namespace KoStringUtilities
