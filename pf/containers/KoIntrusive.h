#pragma once

#include "pf/oswrapper/CKoAsserter.h"

#include <cstddef>
#include <iterator>
#include <type_traits>

/// What the intrusive lists have in common. An intrusive list links objects through a hook that their class
/// inherits: putting an object on a list allocates nothing, and the list owns nothing.
namespace KoIntrusive
{

/// Who uses lists of `T`: `FILE_TEXT` is the source file that their reports name. Specialise it before the
/// first use of such a list:
///
///     template <> struct KoIntrusive::TKoListUser<CTimer>
///     {
///         static constexpr const char* FILE_TEXT = "CTimerManager";
///     };
template <class T>
struct TKoListUser
{
    static constexpr const char* FILE_TEXT = "KoIntrusive";
};

/// Reports the misuse of a list of `T` in the name of its user.
template <class T>
void reportMisuse(unsigned int line)
{
    doCheapAssert(line, TKoListUser<std::remove_const_t<T>>::FILE_TEXT);
}

/// Converts between an element and the hook that it inherits; null to null.
template <class T, class BaseHook>
struct TKoBaseHookAccessor
{
    using Hook = BaseHook;

    static T* toElement(Hook* hook) { return static_cast<T*>(hook); }
    static const T* toElement(const Hook* hook) { return static_cast<const T*>(hook); }
    static Hook* toHook(T* element) { return element; }
    static const Hook* toHook(const T* element) { return element; }
};

/// The part of an iterator that does not step: a place in a list of `T`, null or end included. One pointer;
/// copied freely. It holds until its element leaves the list. Following a null iterator is reported and
/// yields null; the end must not be followed.
template <class T, class Accessor>
class TKoPosition
{
public:
    using Hook =
        std::conditional_t<std::is_const_v<T>, const typename Accessor::Hook, typename Accessor::Hook>;
    using value_type = std::remove_const_t<T>;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    /// The element.
    T* get() const
    {
        if (m_hook == nullptr)
        {
            reportMisuse<T>(__LINE__);
        }
        return Accessor::toElement(m_hook);
    }
    T* operator->() const { return get(); }

    /// The element; after the report of a null iterator, zero bytes in its stead.
    T& operator*() const
    {
        T* const element = get();
        return element != nullptr ? *element : standIn();
    }

    /// The hook; null or that of the list's head are possible.
    Hook* hook() const { return m_hook; }

    /// Whether both are the same place.
    friend bool operator==(const TKoPosition& a, const TKoPosition& b) { return a.m_hook == b.m_hook; }
    friend bool operator!=(const TKoPosition& a, const TKoPosition& b) { return a.m_hook != b.m_hook; }

protected:
    explicit TKoPosition(Hook* hook)
        : m_hook(hook)
    {
    }

    /// \return whether the position can be stepped from; reported when it is null.
    bool checkStep() const
    {
        if (m_hook == nullptr)
        {
            reportMisuse<T>(__LINE__);
        }
        return m_hook != nullptr;
    }

    Hook* m_hook;

private:
    static T& standIn()
    {
        alignas(value_type) static unsigned char sZeroes[sizeof(value_type)] = {};
        return *static_cast<T*>(static_cast<void*>(sZeroes));
    }
};

} // namespace KoIntrusive
