// Parsing a configuration file beside a framework's parser of key files, and beside the least that any reader
// of lines does: reading the file and finding the line ends.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "bench/BenchSupport.h"
#include "pf/base/CKoString.h"
#include "pf/util/CKoConfigFileParser.h"

#ifdef KO_BENCH_GLIB
#include <glib.h>
#endif

namespace
{

constexpr std::size_t FILE_SIZE = 1024UL * 1024UL;
constexpr int SECTION_COUNT = 50;

std::string sectionName(int index)
{
    return "section-" + std::to_string(index);
}

/// A file of 1 MiB in 50 sections: a comment now and then, and otherwise keys and values.
class ConfigFile
{
public:
    ConfigFile()
    {
        std::string text;
        int key = 0;
        for (int section = 0; section < SECTION_COUNT; ++section)
        {
            text += "[" + sectionName(section) + "]\n";
            const std::size_t end = FILE_SIZE / SECTION_COUNT * (static_cast<std::size_t>(section) + 1U);
            while (text.size() < end)
            {
                text += ++key % 10 == 0 ? "# what the next keys are good for\n"
                                        : "key-" + std::to_string(key) + " = some value of this key\n";
            }
        }
        const int file = mkstemp(m_path);
        KoBench::require(file != -1, "mkstemp");
        KoBench::require(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
        close(file);
    }
    ~ConfigFile() { unlink(m_path); }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    const char* path() const { return m_path; }

private:
    char m_path[24] = "/tmp/ko-config-XXXXXX";
};

/// Looks at the lines of all sections.
class Counter final : public CKoConfigFileParser::ICallback
{
public:
    bool processConfigFileEntry(unsigned short sectionId, const char* line) override
    {
        count += sectionId + static_cast<unsigned char>(*line);
        return true;
    }

    std::size_t count = 0;
};

void parseConfiguration(benchmark::State& state)
{
    const ConfigFile file;
    Counter counter;
    CKoConfigFileParser parser;
    for (unsigned short section = 0; section < SECTION_COUNT; ++section)
    {
        parser.addSectionCallback(sectionName(section).c_str(), section, &counter);
    }
    for (auto _ : state)
    {
        KoBench::require(parser.parse(file.path()), "parse");
        benchmark::DoNotOptimize(counter.count);
    }
}

/// Reads with the C library's function for lines, and finds their ends that way.
void readWithFgets(benchmark::State& state)
{
    const ConfigFile file;
    char line[CKoConfigFileParser::MAX_LINE + 1U];
    for (auto _ : state)
    {
        std::FILE* const stream = std::fopen(file.path(), "r");
        std::size_t count = 0;
        while (std::fgets(line, sizeof(line), stream) != nullptr)
        {
            ++count;
        }
        std::fclose(stream);
        benchmark::DoNotOptimize(count);
    }
}

/// Reads the file at once, and finds the line ends in it.
void scanForLineEnds(benchmark::State& state)
{
    const ConfigFile file;
    std::string bytes(FILE_SIZE + FILE_SIZE / 10U, '\0');
    for (auto _ : state)
    {
        const int descriptor = open(file.path(), O_RDONLY | O_CLOEXEC);
        const ssize_t size = read(descriptor, &bytes[0], bytes.size());
        KoBench::require(size > 0, "read");
        close(descriptor);
        const char* at = bytes.data();
        const char* const end = at + size;
        std::size_t count = 0;
        while (const void* lineEnd = std::memchr(at, '\n', static_cast<std::size_t>(end - at)))
        {
            at = static_cast<const char*>(lineEnd) + 1;
            ++count;
        }
        benchmark::DoNotOptimize(count);
    }
}

#ifdef KO_BENCH_GLIB
void loadKeyFile(benchmark::State& state)
{
    const ConfigFile file;
    for (auto _ : state)
    {
        GKeyFile* const keys = g_key_file_new();
        KoBench::require(g_key_file_load_from_file(keys, file.path(), G_KEY_FILE_NONE, nullptr) != 0, "load");
        benchmark::DoNotOptimize(keys);
        g_key_file_free(keys);
    }
}
BENCHMARK(loadKeyFile);
#endif
BENCHMARK(parseConfiguration);
BENCHMARK(readWithFgets);
BENCHMARK(scanForLineEnds);

} // namespace

BENCHMARK_MAIN();
