#pragma once

namespace KoPlatform
{

/// Small numbers for objects: the lowest free one first. Not synchronised. Constant-initialised; holds memory
/// only while it has entries.
class IdTableBase
{
public:
    /// Ids that a table has at most; the first one is 1.
    static constexpr int MAX_IDS = 65535;

    constexpr IdTableBase() noexcept = default;
    IdTableBase(const IdTableBase&) = delete;
    IdTableBase& operator=(const IdTableBase&) = delete;

    /// One above the highest id that may be in use.
    int end() const noexcept { return m_slotCount + 1; }

    /// Puts all entries aside for good: for a forked child, where they are still referred to by threads that
    /// it does not have.
    void startOver() noexcept;

protected:
    ~IdTableBase() = default;

    /// Puts an object under the lowest free id that is at least `lowest`. \return the id, or -1 with `errno`:
    /// `EAGAIN` when there is no id, `ENOMEM`.
    int addObject(void* object, int lowest) noexcept;
    void* findObject(int id) const noexcept;
    void* removeObject(int id) noexcept;

private:
    bool grow() noexcept;
    int lowestFree(int lowest) const noexcept;

    void clear() noexcept;

    void** m_slots = nullptr;     // by id - 1; null where free
    void** m_inherited = nullptr; // what was put aside
    int m_slotCount = 0;
    int m_used = 0;
    int m_hint = 1; // all ids below are taken
};

template <class T>
class TIdTable : public IdTableBase
{
public:
    int add(T& object, int lowest = 1) noexcept { return addObject(&object, lowest); }
    /// Null when there is no such id.
    T* find(int id) const noexcept { return static_cast<T*>(findObject(id)); }
    /// \return what was there.
    T* remove(int id) noexcept { return static_cast<T*>(removeObject(id)); }
};

} // namespace KoPlatform
