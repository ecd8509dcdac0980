// 64 MiB through a file in memory, in pieces of 64 KiB: the library's file classes beside what they are built
// on.

#include "pf/util/CKoFILEDevice.h"
#include "pf/util/CKoFileHandle.h"

#include "bench/BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace
{

using KoBench::require;

constexpr unsigned int PIECE_SIZE = 64 * 1024;
constexpr unsigned int PIECES = 1024;
constexpr int LIMIT_MS = 1000;

/// A file that stays in memory, full from the start, so that writing only copies.
class MemoryFile
{
public:
    MemoryFile()
    {
        const int descriptor = mkstemp(m_path.data());
        require(descriptor != -1, "mkstemp");
        const std::vector<char> piece(PIECE_SIZE, 'x');
        for (unsigned int i = 0; i < PIECES; ++i)
        {
            require(::write(descriptor, piece.data(), PIECE_SIZE) == PIECE_SIZE, "write");
        }
        close(descriptor);
    }
    ~MemoryFile() { unlink(m_path.c_str()); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    const char* path() const { return m_path.c_str(); }

private:
    std::string m_path = "/dev/shm/bench_files-XXXXXX";
};

template <int TIMEOUT_MS>
class Handle
{
public:
    Handle(const char* path, int flags)
        : m_file(path, static_cast<unsigned int>(flags))
    {
    }
    bool read(void* piece) { return m_file.read(piece, PIECE_SIZE, TIMEOUT_MS) == PIECE_SIZE; }
    bool write(const void* piece) { return m_file.write(piece, PIECE_SIZE, TIMEOUT_MS) == PIECE_SIZE; }

private:
    CKoFileHandle m_file;
};

/// The bare calls, after looking whether they would block if there is a limit.
template <int TIMEOUT_MS>
class Calls
{
public:
    Calls(const char* path, int flags)
        : m_descriptor(open(path, flags))
    {
    }
    ~Calls() { close(m_descriptor); }
    Calls(const Calls&) = delete;
    Calls& operator=(const Calls&) = delete;

    bool read(void* piece)
    {
        return isReady(POLLIN) && ::read(m_descriptor, piece, PIECE_SIZE) == PIECE_SIZE;
    }
    bool write(const void* piece)
    {
        return isReady(POLLOUT) && ::write(m_descriptor, piece, PIECE_SIZE) == PIECE_SIZE;
    }

private:
    bool isReady(short events) const
    {
        pollfd self = {m_descriptor, events, 0};
        return TIMEOUT_MS == -1 || poll(&self, 1, TIMEOUT_MS) == 1;
    }

    int m_descriptor;
};

class Device
{
public:
    Device(const char* path, int flags) { m_device.open(path, static_cast<unsigned int>(flags)); }
    bool read(void* piece) { return m_device.read(piece, PIECE_SIZE, -1) == PIECE_SIZE; }
    bool write(const void* piece) { return m_device.write(piece, PIECE_SIZE, -1) == PIECE_SIZE; }

private:
    CKoFILEDevice m_device;
};

class Stream
{
public:
    Stream(const char* path, int flags)
        : m_stream(std::fopen(path, flags == O_RDONLY ? "rb" : "r+b"))
    {
    }
    ~Stream() { std::fclose(m_stream); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    bool read(void* piece) { return std::fread(piece, 1, PIECE_SIZE, m_stream) == PIECE_SIZE; }
    bool write(const void* piece) { return std::fwrite(piece, 1, PIECE_SIZE, m_stream) == PIECE_SIZE; }

private:
    FILE* m_stream;
};

template <class File>
void readPieces(benchmark::State& state)
{
    const MemoryFile memory;
    std::vector<char> piece(PIECE_SIZE);
    for (auto _ : state)
    {
        File file(memory.path(), O_RDONLY);
        for (unsigned int i = 0; i < PIECES; ++i)
        {
            require(file.read(piece.data()), "read");
        }
    }
    state.SetBytesProcessed(state.iterations() * PIECES * PIECE_SIZE);
}

template <class File>
void writePieces(benchmark::State& state)
{
    const MemoryFile memory;
    const std::vector<char> piece(PIECE_SIZE, 'y');
    for (auto _ : state)
    {
        File file(memory.path(), O_WRONLY);
        for (unsigned int i = 0; i < PIECES; ++i)
        {
            require(file.write(piece.data()), "write");
        }
    }
    state.SetBytesProcessed(state.iterations() * PIECES * PIECE_SIZE);
}

BENCHMARK(readPieces<Handle<-1>>);
BENCHMARK(readPieces<Calls<-1>>);
BENCHMARK(readPieces<Handle<LIMIT_MS>>);
BENCHMARK(readPieces<Calls<LIMIT_MS>>);
BENCHMARK(readPieces<Device>);
BENCHMARK(readPieces<Stream>);
BENCHMARK(writePieces<Handle<-1>>);
BENCHMARK(writePieces<Calls<-1>>);
BENCHMARK(writePieces<Handle<LIMIT_MS>>);
BENCHMARK(writePieces<Calls<LIMIT_MS>>);
BENCHMARK(writePieces<Device>);
BENCHMARK(writePieces<Stream>);

} // namespace

BENCHMARK_MAIN();
