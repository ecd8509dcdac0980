// Shared memory against the bare system calls, and counted pointers against the standard ones, in a process
// that has threads.

#include "bench/BenchSupport.h"
#include "pf/oswrapper/CKoShMem.h"
#include "pf/oswrapper/CKoSharedMemory.h"
#include "pf/oswrapper/CKoThreadSafeRefCounter.h"
#include "pf/oswrapper/KoSharedMemoryAccess.h"
#include "pf/oswrapper/TKoRefCountPointer.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <memory>
#include <sys/mman.h>
#include <thread>

namespace
{

constexpr char NAME[] = "/ko-bench-shared-memory";
constexpr unsigned int SIZE = 1U << 20U;

/// The standard pointer counts without atomic operations until a process has had its second thread.
void haveThreads()
{
    std::thread([] {}).join();
}

struct Counted : CKoThreadSafeRefCounter
{
    void lastReferenceRemoved() override { delete this; }
};

template <class Pointer>
void copyPointer(benchmark::State& state, const Pointer& pointer)
{
    haveThreads();
    for (auto _ : state)
    {
        Pointer copy(pointer);
        benchmark::DoNotOptimize(copy);
    }
}

void copyCounted(benchmark::State& state)
{
    copyPointer(state, TKoRefCountPointer<Counted>(new Counted));
}
BENCHMARK(copyCounted);

void copyStandard(benchmark::State& state)
{
    copyPointer(state, std::make_shared<int>());
}
BENCHMARK(copyStandard);

void cycleShMem(benchmark::State& state)
{
    for (auto _ : state)
    {
        CKoShMem memory(NAME, SIZE);
        KoBench::require(memory.create(false) == CKoShMem::CREATED, "create");
        KoBench::require(memory.map(KoSharedMemoryAccess::MAP_READ_WRITE), "map");
        memory.unmap();
        KoBench::require(memory.unlink(), "unlink");
    }
}
BENCHMARK(cycleShMem);

void cycleSharedMemory(benchmark::State& state)
{
    for (auto _ : state)
    {
        CKoSharedMemory memory(NAME, SIZE);
        KoBench::require(memory.map2(false, true, false), "map2");
        memory.unmap();
        memory.unlink();
    }
}
BENCHMARK(cycleSharedMemory);

/// Sets the memory aside, too.
void cycleBare(benchmark::State& state)
{
    for (auto _ : state)
    {
        const int descriptor = shm_open(NAME, O_RDWR | O_CREAT | O_EXCL, 0777);
        KoBench::require(descriptor != -1, "shm_open");
        KoBench::require(posix_fallocate(descriptor, 0, SIZE) == 0, "posix_fallocate");
        void* const address = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        KoBench::require(address != MAP_FAILED, "mmap");
        close(descriptor);
        munmap(address, SIZE);
        KoBench::require(shm_unlink(NAME) == 0, "shm_unlink");
    }
}
BENCHMARK(cycleBare);

} // namespace

BENCHMARK_MAIN();
