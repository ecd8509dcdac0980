// Sixteen paths of the kind that processes use, brought into canonical form, joined with a name and split
// into leaf and branch, beside what a user would pick instead.

#include "pf/util/CKoPath.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#ifdef KO_BENCH_QT
#include <QDir>
#include <QFileInfo>
#endif
#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif

namespace
{

constexpr const char* PATHS[] = {
    "/",
    "/etc/station.conf",
    "/var/lib/station/records/",
    "/var/lib/station//records/2024-03-07.bin",
    "/usr/lib/libsys_vanta.gpp.so.7",
    "/dev/shmem/PID12345.ass",
    "/proc/self/maps",
    "/tmp/log123-1-1700000000-0.txt",
    "//media//card//music//album//track01.ogg",
    "station.conf",
    "records/2024/03/07/",
    "config/regions/europe/germany/bavaria/munich.conf",
    "/home/m\xC3\xBCller/m\xC3\xBCnster/karte.bin",
    "/opt/application/share/resources/images/background/night/1920x1080.png",
    "/var/log/messages///",
    "data/a",
};

constexpr char NAME[] = "record.bin";

/// The paths as each of the libraries holds them.
template <typename Path>
std::vector<Path> heldPaths()
{
    return std::vector<Path>(std::begin(PATHS), std::end(PATHS));
}

/// Measures `work` with each of the paths.
template <typename Path, typename Work>
void forAllPaths(benchmark::State& state, Work work)
{
    const std::vector<Path> paths = heldPaths<Path>();
    for (auto _ : state)
    {
        for (const Path& path : paths)
        {
            work(path);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}

template <typename Value>
void use(const Value& value)
{
    benchmark::DoNotOptimize(value);
}

void canonicalOurs(benchmark::State& state)
{
    forAllPaths<CKoString>(state, [](const CKoString& path) { use(CKoPath::canonify(path).c_str()); });
}
BENCHMARK(canonicalOurs);

void joinOurs(benchmark::State& state)
{
    forAllPaths<CKoPath>(state, [](const CKoPath& path) { use((path / NAME).getString().c_str()); });
}
BENCHMARK(joinOurs);

void leafOurs(benchmark::State& state)
{
    forAllPaths<CKoPath>(state, [](const CKoPath& path) { use(path.getLeaf().c_str()); });
}
BENCHMARK(leafOurs);

void branchOurs(benchmark::State& state)
{
    forAllPaths<CKoPath>(state, [](const CKoPath& path) { use(path.getBranch().c_str()); });
}
BENCHMARK(branchOurs);

void allOurs(benchmark::State& state)
{
    forAllPaths<CKoPath>(state,
                         [](const CKoPath& path)
                         {
                             use(CKoPath::canonify(path.getString()).c_str());
                             use((path / NAME).getString().c_str());
                             use(path.getLeaf().c_str());
                             use(path.getBranch().c_str());
                         });
}
BENCHMARK(allOurs);

using std::filesystem::path;

void canonicalStd(benchmark::State& state)
{
    forAllPaths<path>(state, [](const path& held) { use(held.lexically_normal().c_str()); });
}
BENCHMARK(canonicalStd);

void joinStd(benchmark::State& state)
{
    forAllPaths<path>(state, [](const path& held) { use((held / NAME).c_str()); });
}
BENCHMARK(joinStd);

void leafStd(benchmark::State& state)
{
    forAllPaths<path>(state, [](const path& held) { use(held.filename().c_str()); });
}
BENCHMARK(leafStd);

void branchStd(benchmark::State& state)
{
    forAllPaths<path>(state, [](const path& held) { use(held.parent_path().c_str()); });
}
BENCHMARK(branchStd);

void allStd(benchmark::State& state)
{
    forAllPaths<path>(state,
                      [](const path& held)
                      {
                          use(held.lexically_normal().c_str());
                          use((held / NAME).c_str());
                          use(held.filename().c_str());
                          use(held.parent_path().c_str());
                      });
}
BENCHMARK(allStd);

#ifdef KO_BENCH_QT
/// QString has no constructor from UTF-8 that a vector of it could use.
struct QtPath
{
    explicit QtPath(const char* path)
        : text(QString::fromUtf8(path))
    {
    }
    QString text;
};

void canonicalQt(benchmark::State& state)
{
    forAllPaths<QtPath>(state, [](const QtPath& held) { use(QDir::cleanPath(held.text).constData()); });
}
BENCHMARK(canonicalQt);

void joinQt(benchmark::State& state)
{
    const QString name = QString::fromUtf8(NAME);
    forAllPaths<QtPath>(state,
                        [&](const QtPath& held)
                        {
                            const QString joined = held.text + QLatin1Char('/') + name;
                            use(joined.constData());
                        });
}
BENCHMARK(joinQt);

void leafQt(benchmark::State& state)
{
    forAllPaths<QtPath>(state, [](const QtPath& held) { use(QFileInfo(held.text).fileName().constData()); });
}
BENCHMARK(leafQt);

void branchQt(benchmark::State& state)
{
    forAllPaths<QtPath>(state, [](const QtPath& held) { use(QFileInfo(held.text).path().constData()); });
}
BENCHMARK(branchQt);

void allQt(benchmark::State& state)
{
    const QString name = QString::fromUtf8(NAME);
    forAllPaths<QtPath>(state,
                        [&](const QtPath& held)
                        {
                            use(QDir::cleanPath(held.text).constData());
                            const QString joined = held.text + QLatin1Char('/') + name;
                            use(joined.constData());
                            const QFileInfo parts(held.text);
                            use(parts.fileName().constData());
                            use(parts.path().constData());
                        });
}
BENCHMARK(allQt);
#endif

#ifdef KO_BENCH_GLIB
void useAndFree(char* text)
{
    use(text);
    g_free(text);
}

void canonicalGlib(benchmark::State& state)
{
    forAllPaths<std::string>(state, [](const std::string& held)
                             { useAndFree(g_canonicalize_filename(held.c_str(), "/")); });
}
BENCHMARK(canonicalGlib);

void joinGlib(benchmark::State& state)
{
    forAllPaths<std::string>(state, [](const std::string& held)
                             { useAndFree(g_build_filename(held.c_str(), NAME, nullptr)); });
}
BENCHMARK(joinGlib);

void leafGlib(benchmark::State& state)
{
    forAllPaths<std::string>(state,
                             [](const std::string& held) { useAndFree(g_path_get_basename(held.c_str())); });
}
BENCHMARK(leafGlib);

void branchGlib(benchmark::State& state)
{
    forAllPaths<std::string>(state,
                             [](const std::string& held) { useAndFree(g_path_get_dirname(held.c_str())); });
}
BENCHMARK(branchGlib);

void allGlib(benchmark::State& state)
{
    forAllPaths<std::string>(state,
                             [](const std::string& held)
                             {
                                 useAndFree(g_canonicalize_filename(held.c_str(), "/"));
                                 useAndFree(g_build_filename(held.c_str(), NAME, nullptr));
                                 useAndFree(g_path_get_basename(held.c_str()));
                                 useAndFree(g_path_get_dirname(held.c_str()));
                             });
}
BENCHMARK(allGlib);
#endif

} // namespace

BENCHMARK_MAIN();
