// Containers beside what a user of the standard library would write, with the same elements in the same run.
#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "pf/base/CKoString.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoSmallVector.h"
#include "pf/containers/TKoVector.h"

namespace
{

constexpr int APPEND_COUNT = 1000;
constexpr unsigned int KEY_COUNT = 10000;

template <class Vector>
void appendInts(benchmark::State& state)
{
    for (auto _ : state)
    {
        Vector vector;
        for (int i = 0; i < APPEND_COUNT; ++i)
            vector.push_back(i);
        benchmark::DoNotOptimize(&*vector.begin());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * APPEND_COUNT);
}
BENCHMARK(appendInts<std::vector<int>>);
BENCHMARK(appendInts<TKoVector<int>>);
BENCHMARK(appendInts<TKoSmallVector<int>>);

/// The argument is the length of the texts; up to 15 bytes std::string keeps in the object.
template <class Vector, class String>
void appendStrings(benchmark::State& state)
{
    std::vector<String> texts;
    for (int i = 0; i < 16; ++i)
        texts.emplace_back(
            std::string(static_cast<std::size_t>(state.range(0)), static_cast<char>('a' + i)).c_str());
    for (auto _ : state)
    {
        Vector vector;
        for (std::size_t i = 0; i < APPEND_COUNT; ++i)
            vector.push_back(texts[i % 16]);
        benchmark::DoNotOptimize(&*vector.begin());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * APPEND_COUNT);
}
BENCHMARK(appendStrings<std::vector<std::string>, std::string>)->Arg(12)->Arg(40);
BENCHMARK(appendStrings<TKoSmallVector<CKoString>, CKoString>)->Arg(12)->Arg(40);

/// Keys as a registry has them: common prefixes, numbers that tell them apart.
std::vector<std::string> makeKeys(const std::string& prefix)
{
    std::vector<std::string> keys;
    for (unsigned int i = 0; i < KEY_COUNT; ++i)
        keys.push_back(prefix + std::to_string(i * 7919U % 1000000U));
    return keys;
}

template <class String>
std::vector<String> shuffled(const std::vector<std::string>& keys)
{
    std::vector<String> result;
    for (const std::string& key : keys)
        result.emplace_back(key.c_str());
    std::shuffle(result.begin(), result.end(), std::mt19937(1));
    return result;
}

const char* const PREFIXES[] = {"", "/dev/sensor/"};

void findInFlatVector(benchmark::State& state)
{
    using Entry = std::pair<std::string, int>;
    const std::vector<std::string> keys = makeKeys(PREFIXES[state.range(0)]);
    std::vector<Entry> map;
    for (const std::string& key : keys)
        map.emplace_back(key, 1);
    std::sort(map.begin(), map.end());
    const auto wanted = shuffled<std::string>(keys);
    for (auto _ : state)
    {
        int sum = 0;
        for (const std::string& key : wanted)
        {
            const auto isBefore = [](const Entry& entry, const std::string& text)
            { return entry.first < text; };
            const auto found = std::lower_bound(map.begin(), map.end(), key, isBefore);
            sum += found != map.end() && found->first == key ? found->second : 0;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * KEY_COUNT);
}
BENCHMARK(findInFlatVector)->Arg(0)->Arg(1);

void findInMap(benchmark::State& state)
{
    const std::vector<std::string> keys = makeKeys(PREFIXES[state.range(0)]);
    TKoMap<CKoString, int> map;
    for (const std::string& key : keys)
        map.insert(key.c_str(), 1);
    const auto wanted = shuffled<CKoString>(keys);
    for (auto _ : state)
    {
        int sum = 0;
        for (const CKoString& key : wanted)
        {
            const int index = map.find(key);
            sum += index >= 0 ? map.get(index)->second : 0;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * KEY_COUNT);
}
BENCHMARK(findInMap)->Arg(0)->Arg(1);

} // namespace

BENCHMARK_MAIN();
