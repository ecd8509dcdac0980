#include "pf/containers/CKoListBase.h"

#include "pf/containers/KoListAssertions.h"

#include <utility>

static_assert(sizeof(CKoListNodeBase) == 2 * sizeof(void*) && sizeof(CKoListBase) == 2 * sizeof(void*),
              "a node is two links, and so is the head");

CKoListNodeBase::~CKoListNodeBase()
{
    m_prev = nullptr;
    m_next = nullptr;
}

void CKoListNodeBase::hook(CKoListNodeBase* position)
{
    if (!KoListAssertions::checkNode(position, __LINE__))
    {
        return;
    }
    m_prev = position->m_prev;
    m_next = position;
    m_prev->m_next = this;
    position->m_prev = this;
}

void CKoListNodeBase::unhook()
{
    if (!KoListAssertions::checkNode(m_prev, __LINE__) || !KoListAssertions::checkNode(m_next, __LINE__))
    {
        return;
    }
    m_prev->m_next = m_next;
    m_next->m_prev = m_prev;
}

void CKoListNodeBase::transfer(CKoListNodeBase* first, CKoListNodeBase* last)
{
    if (!KoListAssertions::checkNode(first, __LINE__) || !KoListAssertions::checkNode(last, __LINE__))
    {
        return;
    }
    if (this == last || first == last)
    {
        return;
    }
    last->m_prev->m_next = this;
    first->m_prev->m_next = last;
    m_prev->m_next = first;
    CKoListNodeBase* const before = m_prev;
    m_prev = last->m_prev;
    last->m_prev = first->m_prev;
    first->m_prev = before;
}

void CKoListNodeBase::reverse()
{
    CKoListNodeBase* node = this;
    do
    {
        std::swap(node->m_prev, node->m_next);
        node = node->m_prev;
    } while (node != this);
}

void CKoListNodeBase::swap(CKoListNodeBase& a, CKoListNodeBase& b)
{
    const bool isAEmpty = a.m_next == &a;
    const bool isBEmpty = b.m_next == &b;
    if (isAEmpty || isBEmpty)
    {
        if (!isAEmpty)
        {
            b.takeRingOf(a);
        }
        else if (!isBEmpty)
        {
            a.takeRingOf(b);
        }
        return;
    }
    std::swap(a.m_prev, b.m_prev);
    std::swap(a.m_next, b.m_next);
    a.m_prev->m_next = a.m_next->m_prev = &a;
    b.m_prev->m_next = b.m_next->m_prev = &b;
}

void CKoListNodeBase::takeRingOf(CKoListNodeBase& other)
{
    m_prev = other.m_prev;
    m_next = other.m_next;
    m_prev->m_next = m_next->m_prev = this;
    other.makeRing();
}

CKoListBase::CKoListBase()
{
    makeRing();
}

bool CKoListBase::checkNode(const CKoListNodeBase* node, unsigned int line) const
{
    // The head is as invalid as null, and reported alike.
    return KoListAssertions::checkNode(node != this ? node : nullptr, line);
}
