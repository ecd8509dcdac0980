// Linked with the library's own objects: observers in neighbouring turns of the load order note the time. Of
// two objects with one priority the one linked last, here the observer, comes second.

#include <cstdio>

#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/KoOperatingSystem.h"

namespace
{

struct Observer
{
    unsigned long long timeNs = KoOperatingSystem::getClockValue(2);
};

const Observer sAfterMemoryTrace KO_INIT_ORDER(KoLoadOrder::MEMORY_TRACE);
const Observer sAfterMonotonicBias KO_INIT_ORDER(KoLoadOrder::MONOTONIC_BIAS);

} // namespace

int main()
{
    const unsigned long long bias = KoOperatingSystem::getMonotonicBias(nullptr);
    const bool isInTurn = sAfterMemoryTrace.timeNs <= bias && bias <= sAfterMonotonicBias.timeNs;
    std::printf("bias taken after the memory trace record, in its turn: %d\n", static_cast<int>(isInTurn));
    return 0;
}
