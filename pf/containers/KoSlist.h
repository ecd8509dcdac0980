#pragma once

#include "pf/base/KoExport.h"

/// Chains of singly linked nodes: the untyped half of singly linked lists. A chain ends with a null link; its
/// head is a node in front of the first one. Nothing allocates. One thread at a time. Pointers must not be
/// null unless a function says otherwise.
namespace KoPrivate
{

/// A node of a chain.
struct CKoSlistNodeBase
{
    CKoSlistNodeBase* m_next = nullptr;
};

/// Links `node` directly after `position`. \return node.
KO_EXPORT CKoSlistNodeBase* slistMakeLink(CKoSlistNodeBase* position, CKoSlistNodeBase* node);

/// \return the node, from `head` on, whose next one is `node` (the last one for null); null when there is
/// none and when `head` is null. Linear.
KO_EXPORT CKoSlistNodeBase* slistPrevious(CKoSlistNodeBase* head, const CKoSlistNodeBase* node);
KO_EXPORT const CKoSlistNodeBase* slistPrevious(const CKoSlistNodeBase* head, const CKoSlistNodeBase* node);

/// Moves the nodes after `beforeFirst` up to and including `beforeLast` to directly after `position`, which
/// must not be among them. Nothing happens when `position` is either end or the range is empty.
KO_EXPORT void slistSpliceAfter(CKoSlistNodeBase* position, CKoSlistNodeBase* beforeFirst,
                                CKoSlistNodeBase* beforeLast);

/// Moves all nodes after `head` to directly after `position`, which must not be among them. Linear in their
/// number.
KO_EXPORT void slistSpliceAfter(CKoSlistNodeBase* position, CKoSlistNodeBase* head);

/// Reverses the chain that starts with `node`, which may be null. \return its new first node. Linear.
KO_EXPORT CKoSlistNodeBase* slistReverse(CKoSlistNodeBase* node);

/// \return the number of nodes from `node`, which may be null, to the end of the chain. Linear.
KO_EXPORT unsigned int slistSize(const CKoSlistNodeBase* node);

} // namespace KoPrivate
