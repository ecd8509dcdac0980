#pragma once

#include <cerrno>

/// Keeps the calling thread's error number over a piece of code that may disturb it: the constructor saves
/// `errno`, the destructor puts it back. Used on every path that does not promise to set it.
///
///     KoErrnoGuard guard;
///     writeDiagnosticsThatMayFail();
///
/// Not copyable; one thread; one word.
class KoErrnoGuard
{
public:
    KoErrnoGuard() noexcept
        : m_saved(errno)
    {
    }
    ~KoErrnoGuard() { errno = m_saved; }
    KoErrnoGuard(const KoErrnoGuard&) = delete;
    KoErrnoGuard& operator=(const KoErrnoGuard&) = delete;

    /// The error number that the destructor puts back.
    int saved() const noexcept { return m_saved; }

private:
    int m_saved;
};
