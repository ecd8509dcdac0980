#include "pf/containers/KoSlist.h"

namespace KoPrivate
{

CKoSlistNodeBase* slistMakeLink(CKoSlistNodeBase* position, CKoSlistNodeBase* node)
{
    node->m_next = position->m_next;
    position->m_next = node;
    return node;
}

CKoSlistNodeBase* slistPrevious(CKoSlistNodeBase* head, const CKoSlistNodeBase* node)
{
    while (head != nullptr && head->m_next != node)
    {
        head = head->m_next;
    }
    return head;
}

const CKoSlistNodeBase* slistPrevious(const CKoSlistNodeBase* head, const CKoSlistNodeBase* node)
{
    return slistPrevious(const_cast<CKoSlistNodeBase*>(head), node);
}

void slistSpliceAfter(CKoSlistNodeBase* position, CKoSlistNodeBase* beforeFirst, CKoSlistNodeBase* beforeLast)
{
    if (position == beforeFirst || position == beforeLast || beforeFirst == beforeLast)
    {
        return;
    }
    CKoSlistNodeBase* const first = beforeFirst->m_next;
    beforeFirst->m_next = beforeLast->m_next;
    beforeLast->m_next = position->m_next;
    position->m_next = first;
}

void slistSpliceAfter(CKoSlistNodeBase* position, CKoSlistNodeBase* head)
{
    // An empty chain is its own last node: the range is empty then.
    slistSpliceAfter(position, head, slistPrevious(head, nullptr));
}

CKoSlistNodeBase* slistReverse(CKoSlistNodeBase* node)
{
    CKoSlistNodeBase* reversed = nullptr;
    while (node != nullptr)
    {
        CKoSlistNodeBase* const next = node->m_next;
        node->m_next = reversed;
        reversed = node;
        node = next;
    }
    return reversed;
}

unsigned int slistSize(const CKoSlistNodeBase* node)
{
    unsigned int size = 0U;
    while (node != nullptr)
    {
        ++size;
        node = node->m_next;
    }
    return size;
}

} // namespace KoPrivate
