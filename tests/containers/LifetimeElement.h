#pragma once

#include "pf/containers/TKoIsRelocatable.h"

namespace KoTest
{

/// What the elements of both kinds count.
struct Lifetimes
{
    static inline int alive = 0;
    static inline int faults = 0;
};

/// An element that counts the living and notices misuse of its memory: use without construction, double
/// destruction, and, unless it is relocatable, a bitwise move, because it then knows its own address.
template <bool RELOCATABLE>
class LifetimeElement : public Lifetimes
{
public:
    explicit LifetimeElement(int value)
        : m_magic(magic())
        , m_value(value)
    {
        ++alive;
    }
    LifetimeElement(const LifetimeElement& other)
        : LifetimeElement(other.value())
    {
    }
    ~LifetimeElement()
    {
        check();
        --alive;
        m_magic = nullptr;
    }
    LifetimeElement& operator=(const LifetimeElement& other)
    {
        check();
        m_value = other.value();
        return *this;
    }

    int value() const
    {
        check();
        return m_value;
    }

    bool operator==(const LifetimeElement& other) const { return value() == other.value(); }

private:
    const void* magic() const { return RELOCATABLE ? static_cast<const void*>(&alive) : this; }
    void check() const { faults += m_magic != magic() ? 1 : 0; }

    const void* m_magic;
    int m_value;
};

} // namespace KoTest

template <>
struct TKoIsRelocatable<KoTest::LifetimeElement<true>> : std::true_type
{
};
