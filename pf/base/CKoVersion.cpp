#include "pf/base/CKoVersion.h"

#include "pf/oswrapper/KoLoadOrder.h"

#include <type_traits>

static_assert(sizeof(CKoVersion) == 6 && std::is_trivially_copyable_v<CKoVersion>, "three numbers");

const CKoVersion CKoVersion::invalid KO_INIT_ORDER(KoLoadOrder::INVALID_VERSION)(0, 0, 0);

const CKoVersion& CKoVersion::invalidVersion()
{
    return invalid;
}
