// Records through a ring of bytes that stays half full, beside bare copies that wrap at the same places.

#include "pf/containers/CKoCircularByteBuffer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace
{

constexpr unsigned int CAPACITY = 64 * 1024;
constexpr unsigned int RECORD_SIZE = 64;
constexpr int RECORDS = 1024;

struct SRecord
{
    unsigned char bytes[RECORD_SIZE];
};

/// What remains of a ring when nothing is checked.
class BareRing
{
public:
    explicit BareRing(unsigned int capacity)
        : m_storage(capacity + 1)
    {
    }

    void doWrite(const void* src, unsigned int count)
    {
        const auto* const bytes = static_cast<const unsigned char*>(src);
        const unsigned int first = std::min(count, span() - m_end);
        std::memcpy(&m_storage[m_end], bytes, first);
        if (first < count)
        {
            std::memcpy(&m_storage[0], bytes + first, count - first);
        }
        m_end = (m_end + count) % span();
    }

    void doRead(void* dst, unsigned int count)
    {
        auto* const bytes = static_cast<unsigned char*>(dst);
        const unsigned int first = std::min(count, span() - m_begin);
        std::memcpy(bytes, &m_storage[m_begin], first);
        if (first < count)
        {
            std::memcpy(bytes + first, &m_storage[0], count - first);
        }
        m_begin = (m_begin + count) % span();
    }

private:
    unsigned int span() const { return static_cast<unsigned int>(m_storage.size()); }

    std::vector<unsigned char> m_storage;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
};

template <class Ring>
void recordsThrough(benchmark::State& state)
{
    Ring ring(CAPACITY);
    SRecord record = {};
    for (unsigned int filled = 0; filled < CAPACITY / 2; filled += RECORD_SIZE)
    {
        ring.doWrite(&record, sizeof(record));
    }
    for (auto _ : state)
    {
        for (int i = 0; i < RECORDS; ++i)
        {
            ring.doWrite(&record, sizeof(record));
            ring.doRead(&record, sizeof(record));
            benchmark::DoNotOptimize(record);
        }
    }
    state.SetItemsProcessed(state.iterations() * RECORDS);
}
BENCHMARK(recordsThrough<CKoCircularByteBuffer>);
BENCHMARK(recordsThrough<BareRing>);

} // namespace

BENCHMARK_MAIN();
