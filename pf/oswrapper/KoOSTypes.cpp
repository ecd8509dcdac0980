#include "pf/oswrapper/KoOSTypes.h"

#include <cstddef>

static_assert(sizeof(KoOSTypes::SEMHANDLE) == 32, "the record may lie in memory that processes share");
static_assert(offsetof(KoOSTypes::SEMHANDLE, lock) == 4 && offsetof(KoOSTypes::SEMHANDLE, condition) == 12 &&
                  offsetof(KoOSTypes::SEMHANDLE, count) == 20,
              "the record may lie in memory that processes share");

namespace KoOSTypes
{

const SEMHANDLE sInvalidSemHandle = {};
const TRIGGER_HANDLE sInvalidTriggerHandle = {};
const CONDVAR_HANDLE sInvalidCondVarHandle = {};

} // namespace KoOSTypes
