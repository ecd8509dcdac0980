#pragma once

/// Storage for a value that is there only when asked for: a flag and room for one `T`, no heap.
///
///     TKoOptional<CKoCriticalSection, 8, 4> lock;
///     lock.construct(KoPrivate::TKoInplaceFactory_0());
///
/// Owns the value while the flag is set. Not copyable. The owner constructs and destroys the value before and
/// after any concurrent use; in between, any thread may test the flag and use the value. \tparam SIZE bytes
/// of storage, \tparam ALIGNMENT its alignment; both must suffice for `T`.
template <class T, unsigned int SIZE, unsigned int ALIGNMENT>
class TKoOptional
{
public:
    /// The test that callers make before they touch the value.
    struct SKoHidden
    {
        static bool is_initialized(const TKoOptional& optional) { return optional.m_initialized != 0U; }
    };

    constexpr TKoOptional() noexcept
        : m_initialized(0U)
        , m_storage{}
    {
    }
    ~TKoOptional() { destroy(); }

    TKoOptional(const TKoOptional&) = delete;
    TKoOptional& operator=(const TKoOptional&) = delete;

    /// Builds the value through the factory and sets the flag. There must be no value yet.
    template <class Factory>
    void construct(const Factory& factory)
    {
        static_assert(sizeof(T) <= SIZE && alignof(T) <= ALIGNMENT, "the storage must hold the value");
        factory.template apply<T>(m_storage);
        m_initialized = 1U;
    }

    /// Destroys the value, if there is one, and builds a new one.
    template <class Factory>
    void reset(const Factory& factory)
    {
        destroy();
        construct(factory);
    }

    /// Destroys the value, if there is one, and clears the flag.
    void destroy()
    {
        if (m_initialized != 0U)
        {
            get()->~T();
            m_initialized = 0U;
        }
    }

    /// The value; only while the flag is set.
    T* get() { return __builtin_launder(static_cast<T*>(static_cast<void*>(m_storage))); }

private:
    unsigned char m_initialized;
    alignas(ALIGNMENT) unsigned char m_storage[SIZE];
};
