// Hash tables beside the usual ones, with the same keys in the same run.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#ifdef KO_BENCH_QT
#include <QHash>
#include <QString>
#endif
#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef KO_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

#include "pf/base/CKoString.h"
#include "pf/containers/TKoHashArray.h"
#include "pf/containers/TKoHashMap.h"

namespace
{

constexpr unsigned int NUMBER_COUNT = 1000000;
constexpr unsigned int TEXT_COUNT = 100000;

/// The keys of a table, and as many that are not in it.
template <class Key>
struct Keys
{
    std::vector<Key> present;
    std::vector<Key> absent;
};

/// Ascending from 1, or random without repetition, looked up in the order of insertion.
const Keys<unsigned int>& numbers(bool isRandom)
{
    static const Keys<unsigned int>* const sKeys = []
    {
        auto* const keys = new Keys<unsigned int>[2];
        for (unsigned int i = 1; i <= 2U * NUMBER_COUNT; ++i)
        {
            // Multiplying by an odd number and shifting permute the numbers.
            const unsigned int scattered = (i * 0x9E3779B1U ^ (i * 0x9E3779B1U >> 15U)) * 0x85EBCA6BU;
            const unsigned int random = scattered ^ scattered >> 13U;
            (i <= NUMBER_COUNT ? keys[0].present : keys[0].absent).push_back(i);
            (i <= NUMBER_COUNT ? keys[1].present : keys[1].absent).push_back(random);
        }
        return keys;
    }();
    return sKeys[isRandom ? 1 : 0];
}

std::string ownCopy(const std::string& text)
{
    return text;
}
CKoString ownCopy(const CKoString& text)
{
    return CKoString(text.c_str());
}
#ifdef KO_BENCH_QT
QString ownCopy(const QString& text)
{
    return QString(text.constData(), text.size());
}
#endif

/// Names as a registry has them: a common prefix, numbers that tell them apart, looked up in another order
/// than that of insertion.
template <class Text>
const Keys<Text>& texts(bool isShuffled)
{
    static const Keys<Text>* const sKeys = []
    {
        auto* const keys = new Keys<Text>[2];
        for (unsigned int i = 0; i < 2U * TEXT_COUNT; ++i)
        {
            const std::string text = "/dev/sensor/" + std::to_string(i * 7919U % 1000003U);
            (i < TEXT_COUNT ? keys[0].present : keys[0].absent).emplace_back(text.c_str());
        }
        for (const auto* list : {&keys[0].present, &keys[0].absent})
        {
            // Texts of their own, not shares of those in the table.
            auto& copies = list == &keys[0].present ? keys[1].present : keys[1].absent;
            for (const Text& text : *list)
            {
                copies.push_back(ownCopy(text));
            }
        }
        std::shuffle(keys[1].present.begin(), keys[1].present.end(), std::mt19937(1));
        return keys;
    }();
    return sKeys[isShuffled ? 1 : 0];
}

/// How each table is used. The default fits those with the interface of the standard library.
template <class Table, class Key>
struct Use
{
    static void insert(Table& table, const Key& key) { table[key] = 1; }
    static bool find(const Table& table, const Key& key) { return table.find(key) != table.end(); }
};

template <class V, class Key>
struct Use<TKoHashMap<V>, Key>
{
    static void insert(TKoHashMap<V>& table, unsigned int key) { table[key] = 1; }
    static bool find(const TKoHashMap<V>& table, unsigned int key) { return table.contains(key); }
};

template <class K, class V>
struct Use<TKoHashArray<K, V>, K>
{
    static void insert(TKoHashArray<K, V>& table, const K& key) { table[key] = 1; }
    static bool find(const TKoHashArray<K, V>& table, const K& key) { return table.contains(key); }
};

#ifdef KO_BENCH_QT
template <class K, class V>
struct Use<QHash<K, V>, K>
{
    static void insert(QHash<K, V>& table, const K& key) { table[key] = 1; }
    static bool find(const QHash<K, V>& table, const K& key) { return table.contains(key); }
};
#endif

#ifdef KO_BENCH_GLIB
struct NumberTable
{
    NumberTable() = default;
    NumberTable(const NumberTable&) = delete;
    NumberTable& operator=(const NumberTable&) = delete;
    ~NumberTable() { g_hash_table_destroy(table); }

    GHashTable* table = g_hash_table_new(nullptr, nullptr);
};

struct TextTable
{
    TextTable() = default;
    TextTable(const TextTable&) = delete;
    TextTable& operator=(const TextTable&) = delete;
    ~TextTable() { g_hash_table_destroy(table); }

    GHashTable* table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr);
};

template <>
struct Use<NumberTable, unsigned int>
{
    static void insert(NumberTable& table, unsigned int key)
    {
        g_hash_table_insert(table.table, GUINT_TO_POINTER(key), GINT_TO_POINTER(1));
    }
    static bool find(const NumberTable& table, unsigned int key)
    {
        return g_hash_table_contains(table.table, GUINT_TO_POINTER(key)) != FALSE;
    }
};

template <>
struct Use<TextTable, std::string>
{
    static void insert(TextTable& table, const std::string& key)
    {
        g_hash_table_insert(table.table, g_strdup(key.c_str()), GINT_TO_POINTER(1));
    }
    static bool find(const TextTable& table, const std::string& key)
    {
        return g_hash_table_contains(table.table, key.c_str()) != FALSE;
    }
};
#endif

template <class Table, class Key>
void fill(Table& table, const std::vector<Key>& keys)
{
    for (const Key& key : keys)
    {
        Use<Table, Key>::insert(table, key);
    }
}

template <class Table, class Key>
void insertAll(benchmark::State& state, const Keys<Key>& keys)
{
    for (auto _ : state)
    {
        Table table;
        fill(table, keys.present);
        benchmark::DoNotOptimize(&table);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.present.size()));
}

template <class Table, class Key>
void findAll(benchmark::State& state, const Keys<Key>& keys, const std::vector<Key>& wanted)
{
    Table table;
    fill(table, keys.present);
    for (auto _ : state)
    {
        std::size_t found = 0;
        for (const Key& key : wanted)
        {
            found += Use<Table, Key>::find(table, key) ? 1U : 0U;
        }
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(wanted.size()));
}

template <class Table>
void insertNumbers(benchmark::State& state)
{
    insertAll<Table>(state, numbers(state.range(0) != 0));
}

template <class Table>
void findNumbers(benchmark::State& state)
{
    const auto& keys = numbers(state.range(0) != 0);
    findAll<Table>(state, keys, keys.present);
}

template <class Table>
void missNumbers(benchmark::State& state)
{
    const auto& keys = numbers(state.range(0) != 0);
    findAll<Table>(state, keys, keys.absent);
}

template <class Table, class Text>
void insertTexts(benchmark::State& state)
{
    insertAll<Table>(state, texts<Text>(false));
}

template <class Table, class Text>
void findTexts(benchmark::State& state)
{
    findAll<Table>(state, texts<Text>(false), texts<Text>(true).present);
}

template <class Table, class Text>
void missTexts(benchmark::State& state)
{
    findAll<Table>(state, texts<Text>(false), texts<Text>(true).absent);
}

// The argument of the numbers: 0 ascending, 1 random.
#define KO_BENCH_NUMBERS(...)                                                                                \
    BENCHMARK(insertNumbers<__VA_ARGS__>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);                    \
    BENCHMARK(findNumbers<__VA_ARGS__>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);                      \
    BENCHMARK(missNumbers<__VA_ARGS__>)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)
#define KO_BENCH_TEXTS(...)                                                                                  \
    BENCHMARK(insertTexts<__VA_ARGS__>)->Unit(benchmark::kMillisecond);                                      \
    BENCHMARK(findTexts<__VA_ARGS__>)->Unit(benchmark::kMillisecond);                                        \
    BENCHMARK(missTexts<__VA_ARGS__>)->Unit(benchmark::kMillisecond)

KO_BENCH_NUMBERS(TKoHashMap<std::uintptr_t>);
KO_BENCH_NUMBERS(std::unordered_map<unsigned int, std::uintptr_t>);
KO_BENCH_TEXTS(TKoHashArray<CKoString, std::uintptr_t>, CKoString);
KO_BENCH_TEXTS(std::unordered_map<std::string, std::uintptr_t>, std::string);
#ifdef KO_BENCH_QT
KO_BENCH_NUMBERS(QHash<unsigned int, std::uintptr_t>);
KO_BENCH_TEXTS(QHash<QString, std::uintptr_t>, QString);
#endif
#ifdef KO_BENCH_GLIB
KO_BENCH_NUMBERS(NumberTable);
KO_BENCH_TEXTS(TextTable, std::string);
#endif
#ifdef KO_BENCH_ABSL
KO_BENCH_NUMBERS(absl::flat_hash_map<unsigned int, std::uintptr_t>);
KO_BENCH_TEXTS(absl::flat_hash_map<std::string, std::uintptr_t>, std::string);
#endif

} // namespace

BENCHMARK_MAIN();
