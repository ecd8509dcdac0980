#include "pf/base/CKoClassID.h"

static_assert(sizeof(CKoClassID) == sizeof(void*), "the name");

CKoClassID::~CKoClassID()
{
    // A plain store to an object that ends is one that the compiler leaves out.
    const_cast<const char* volatile&>(m_name) = nullptr;
}
