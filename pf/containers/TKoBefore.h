#pragma once

#include "pf/base/CKoString.h"

#include <cstring>

/// The default order of sorted vectors and maps: whether `a` comes before `b`.
template <class T>
struct TKoBefore
{
    bool operator()(const T& a, const T& b) const { return a < b; }
};

/// Texts are ordered by their bytes, descending: "c", "b", "a".
template <>
struct TKoBefore<CKoString>
{
    bool operator()(const CKoString& a, const CKoString& b) const
    {
        return std::strcmp(a.c_str(), b.c_str()) > 0;
    }
};
