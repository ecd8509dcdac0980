#pragma once

#include <cerrno>

/// Results below 0 are failures.
struct CKoLtNullComp
{
    template <class Result>
    constexpr bool operator()(Result result) const noexcept
    {
        return result < 0;
    }
};

/// Null pointers are failures.
struct CKoIsNullComp
{
    constexpr bool operator()(const void* result) const noexcept { return result == nullptr; }
};

/// Calls a platform function as if signals did not exist: a call that fails with `EINTR` is made again.
///
///     if (TKoErrnoSafeFunction(::mkdir)(path, mode) == 0) { ... }
///
/// `errno` is 0 before each try, so what it holds afterwards is the function's own. Not for functions that
/// release what they are given even when they are interrupted (`close`, `closedir`): the second try would
/// release what somebody else has been given meanwhile.
///
/// `Comp` tells the failures among the results. A value of one pointer; any thread may call it.
template <class F, class Comp = CKoLtNullComp>
class TKoErrnoSafeFunction
{
public:
    constexpr explicit TKoErrnoSafeFunction(F* function) noexcept
        : m_function(function)
    {
    }

    /// \return what the last try returned.
    template <class... Arguments>
    auto operator()(Arguments&&... arguments) const
    {
        // Not forwarded: the next try needs what a parameter could take with it.
        const auto attempt = [&]
        {
            errno = 0;
            return m_function(arguments...);
        };
        auto result = attempt();
        while (Comp()(result) && errno == EINTR)
        {
            result = attempt();
        }
        return result;
    }

private:
    F* m_function;
};
