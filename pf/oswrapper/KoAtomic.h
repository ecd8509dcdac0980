#pragma once

/// Atomic counters for records whose layout is fixed: shared blocks, usage tables, objects in shared
/// memory. They work on a plain `unsigned int`, which must only be changed through these functions while
/// several threads (or processes) share it.
///
/// Any thread may call them; none blocks or fails. Counting up and statistics need no order; the one order
/// that matters is that whoever counts down to zero sees everything the others did before they counted down.
namespace KoAtomic
{

/// Counts a reference up. Relaxed: who can count up holds a reference already.
inline void increment(unsigned int& value)
{
    __atomic_add_fetch(&value, 1U, __ATOMIC_RELAXED);
}

/// Counts down by one and tells whether the new value is not zero.
/// Acquire and release: pairs with every other call on the same counter, so that the caller who gets
/// false may release what the counter guards.
inline bool testDecrement(unsigned int& value)
{
    return __atomic_sub_fetch(&value, 1U, __ATOMIC_ACQ_REL) != 0U;
}

/// Reads a counter. Acquire: pairs with testDecrement, so that who reads 1 as the last owner may write.
inline unsigned int load(const unsigned int& value)
{
    return __atomic_load_n(&value, __ATOMIC_ACQUIRE);
}

/// Adds to a statistics counter. Relaxed: it orders nothing.
inline void add(unsigned int& value, unsigned int amount)
{
    __atomic_add_fetch(&value, amount, __ATOMIC_RELAXED);
}

/// Subtracts from a statistics counter. Relaxed: it orders nothing.
inline void subtract(unsigned int& value, unsigned int amount)
{
    __atomic_sub_fetch(&value, amount, __ATOMIC_RELAXED);
}

/// Adds to a counter and gives the value from before. Relaxed: it orders nothing.
inline unsigned int fetchAdd(unsigned int& value, unsigned int amount)
{
    return __atomic_fetch_add(&value, amount, __ATOMIC_RELAXED);
}

} // namespace KoAtomic
