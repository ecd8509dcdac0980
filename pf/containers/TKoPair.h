#pragma once

#include "pf/containers/TKoIsRelocatable.h"

/// Two values side by side; in maps the key and what it maps to.
template <class A, class B>
struct TKoPair
{
    /// Both values value-initialised.
    TKoPair()
        : first()
        , second()
    {
    }
    TKoPair(const A& firstValue, const B& secondValue)
        : first(firstValue)
        , second(secondValue)
    {
    }

    A first;  ///< in maps the key
    B second; ///< in maps what the key maps to
};

/// A pair moves bitwise when both its values do.
template <class A, class B>
struct TKoIsRelocatable<TKoPair<A, B>>
    : std::bool_constant<TKoIsRelocatable<A>::value && TKoIsRelocatable<B>::value>
{
};
