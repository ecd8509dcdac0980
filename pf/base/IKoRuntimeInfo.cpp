#include "pf/base/IKoRuntimeInfo.h"

#include "pf/oswrapper/KoLoadOrder.h"

static_assert(sizeof(IKoRuntimeInfo) == sizeof(void*), "no data");

const CKoClassID IKoRuntimeInfo::sClassID KO_INIT_ORDER(KoLoadOrder::RUNTIME_INFO_CLASS_ID)("IKoRuntimeInfo");

IKoRuntimeInfo::~IKoRuntimeInfo() = default;

void* IKoRuntimeInfo::castToPtr(const CKoClassID& id)
{
    return &id == &sClassID ? this : nullptr;
}

const void* IKoRuntimeInfo::castToPtr(const CKoClassID& id) const
{
    return &id == &sClassID ? this : nullptr;
}
