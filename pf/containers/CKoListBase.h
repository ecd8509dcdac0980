#pragma once

#include "pf/base/KoExport.h"

/// A node of a doubly linked ring: the untyped half of a list. The operations link nodes and never allocate.
///
/// Two pointers. A node that was never linked has null links; so has one that was destroyed. Not copyable.
/// One thread at a time. Every operation takes constant time unless it says otherwise. Null nodes are
/// reported as "Invalid iterator position" at "TKoList" and change nothing.
class KO_EXPORT CKoListNodeBase
{
public:
    constexpr CKoListNodeBase() noexcept = default;
    /// Sets the links to null; neighbours keep pointing here, so unhook the node first.
    ~CKoListNodeBase();

    CKoListNodeBase(const CKoListNodeBase&) = delete;
    CKoListNodeBase& operator=(const CKoListNodeBase&) = delete;

    /// Links this node into the ring of `position`, directly before it.
    void hook(CKoListNodeBase* position);

    /// Joins the neighbours to each other. The node's own links stay as they are.
    void unhook();

    /// Moves the nodes from `first` up to and without `last` out of their ring to directly before this one,
    /// which must not be among them. Nothing happens when this is `last` or the range is empty.
    void transfer(CKoListNodeBase* first, CKoListNodeBase* last);

    /// Reverses the whole ring. Linear.
    void reverse();

    /// Exchanges the contents of the rings that `a` and `b` head.
    static void swap(CKoListNodeBase& a, CKoListNodeBase& b);

    /// The neighbours in the ring.
    CKoListNodeBase* prev() const { return m_prev; }
    CKoListNodeBase* next() const { return m_next; }

protected:
    /// Makes this node a ring of its own.
    void makeRing() { m_prev = m_next = this; }

private:
    void takeRingOf(CKoListNodeBase& other);

    CKoListNodeBase* m_prev = nullptr;
    CKoListNodeBase* m_next = nullptr;
};

/// The head of a ring of nodes, itself the node that closes the ring. It does not own the nodes.
class KO_EXPORT CKoListBase : public CKoListNodeBase
{
public:
    /// An empty ring.
    CKoListBase();

    /// Whether the ring has no node but the head.
    bool isEmpty() const { return next() == this; }

    /// \return whether `node` can be an element: it is neither null nor the head, else "Invalid iterator
    /// position" is reported at "TKoList" and the given line.
    bool checkNode(const CKoListNodeBase* node, unsigned int line) const;
};
