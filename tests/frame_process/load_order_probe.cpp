// Linked with the library's own objects: observers with the priorities of the load order see what stands
// before and after each turn. Of two objects with one priority the one linked last, here the observer, comes
// second.

#include <cstdio>
#include <cstring>
#include <ctime>

#include "pf/base/CKoString.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/stream/CKoNullStream.h"

namespace
{

/// Constant-initialised, so that no later turn wipes what an earlier one wrote.
struct Turn
{
    unsigned long long timeNs;
    bool hasNullStream;
    bool hasNullString;
};

constexpr int FIRST = KoLoadOrder::CIRCULAR_BUFFER_EMPTY_STRING;
constexpr int LAST = KoLoadOrder::BACKTRACE_LOCK;
Turn sTurns[LAST - FIRST + 1];

unsigned long long nowNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL +
           static_cast<unsigned long long>(now.tv_nsec);
}

bool hasBytes(const void* object, std::size_t size)
{
    const unsigned char* const bytes = static_cast<const unsigned char*>(object);
    for (std::size_t i = 0; i < size; ++i)
    {
        if (bytes[i] != 0)
        {
            return true;
        }
    }
    return false;
}

template <int Priority>
struct Observer
{
    Observer()
    {
        sTurns[Priority - FIRST] = Turn{nowNs(), hasBytes(&CKoNullStream::INSTANCE, sizeof(CKoNullStream)),
                                        hasBytes(&CKoString::null, sizeof(CKoString))};
    }
};

Observer<KoLoadOrder::MEMORY_TRACE> sAfterTrace KO_INIT_ORDER(KoLoadOrder::MEMORY_TRACE);
Observer<KoLoadOrder::MONOTONIC_BIAS> sAfterBias KO_INIT_ORDER(KoLoadOrder::MONOTONIC_BIAS);
Observer<KoLoadOrder::NULL_STREAM> sAfterStream KO_INIT_ORDER(KoLoadOrder::NULL_STREAM);
Observer<KoLoadOrder::STRING_STATICS> sAfterStrings KO_INIT_ORDER(KoLoadOrder::STRING_STATICS);

const Turn& after(int priority)
{
    return sTurns[priority - FIRST];
}

} // namespace

int main()
{
    const unsigned long long bias = KoOperatingSystem::getMonotonicBias(nullptr);
    std::printf("bias between memory trace and options %d\n",
                static_cast<int>(after(KoLoadOrder::MEMORY_TRACE).timeNs <= bias &&
                                 bias <= after(KoLoadOrder::MONOTONIC_BIAS).timeNs));
    std::printf("null stream after its turn %d\n",
                static_cast<int>(after(KoLoadOrder::NULL_STREAM).hasNullStream));
    std::printf("null string after its turn %d\n",
                static_cast<int>(after(KoLoadOrder::STRING_STATICS).hasNullString));
    return 0;
}
