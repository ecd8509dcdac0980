#include "pf/util/KoBacktrace.h"

#include "pf/base/CKoString.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/TKoStartupCaller.h"
#include "pf/platform/KoPlatformBacktrace.h"
#include "pf/platform/KoPlatformFile.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformThread.h"

#include <atomic>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <unistd.h>

namespace
{

constexpr int MAX_ADDRESSES = 100;
constexpr int ADDRESSES_PER_LINE = 6;
constexpr std::size_t PATH_SIZE = 1024;
constexpr unsigned int SHORT_MAP_ENTRIES = 27;
constexpr std::size_t SHORT_MAP_SIZE = 4096;
constexpr std::size_t BYTES_PER_MAP_ENTRY = 150;
constexpr std::size_t LONG_MAP_SIZE = BYTES_PER_MAP_ENTRY * KoPlatform::SMemoryMap::MAX_ENTRIES;

/// Collects text for a descriptor and writes it in large pieces, without the heap. Failures are not reported:
/// there is nobody left to tell.
class CDumpWriter
{
public:
    void begin(int file)
    {
        m_file = file;
        m_length = 0;
    }

    CDumpWriter& add(const char* text)
    {
        for (std::size_t rest = std::strlen(text); rest > 0;)
        {
            if (m_length == sizeof(m_buffer))
            {
                flush();
            }
            const std::size_t room = sizeof(m_buffer) - m_length;
            const std::size_t piece = rest < room ? rest : room;
            std::memcpy(m_buffer + m_length, text, piece);
            m_length += piece;
            text += piece;
            rest -= piece;
        }
        return *this;
    }

    void flush()
    {
        std::size_t done = 0;
        while (done < m_length)
        {
            const ssize_t written = KoPlatform::repeatInterrupted(
                [this, done] { return ::write(m_file, m_buffer + done, m_length - done); });
            if (written <= 0)
            {
                break;
            }
            done += static_cast<std::size_t>(written);
        }
        m_length = 0;
    }

private:
    int m_file;
    std::size_t m_length;
    char m_buffer[1024];
};

/// What one dump works on: too much for the stack of a small thread, and not to come from the heap.
struct SDump
{
    KoPlatform::SMemoryMap map;
    std::uintptr_t addresses[MAX_ADDRESSES];
    int addressCount;
    char mapText[LONG_MAP_SIZE];
    char path[PATH_SIZE];
    CDumpWriter writer;
};

/// The second one serves a dump that interrupts one of the same thread: from an assertion of the information
/// function or of a signal handler.
SDump sDumps[2];

/// Dumps that the calling thread is in the middle of.
__thread unsigned int sNesting __attribute__((tls_model("initial-exec"))) = 0;

/// A lock without a destructor: a process may end in the middle of a dump, and still report later.
union ULastingLock
{
    constexpr ULastingLock()
        : section()
    {
    }
    ~ULastingLock() {}

    CKoCriticalSection section;
};

ULastingLock sCriticalSection KO_INIT_ORDER(KoLoadOrder::BACKTRACE_LOCK);

CKoString getDefaultInfos(CKoString& fileBaseName)
{
    fileBaseName.format("PID%d", ::getpid());
    CKoString text;
    text.format("TID: %d PID: %d", KoPlatform::threadSelf(), ::getpid());
    return text;
}

std::atomic<KoBacktrace::InfoFunction> sInfos{getDefaultInfos};

/// Whoever held the lock in the parent holds it no more: another thread stayed behind, and the forking one
/// has got a new identity. A child that was forked inside a dump, by the information function, finishes that
/// dump.
void takeOverInChild()
{
    new (&sCriticalSection.section) CKoCriticalSection();
    if (sNesting > 0)
    {
        sCriticalSection.section.lock();
    }
}

void watchForks()
{
    // Asking for the identity registers the handler that drops it in a child. Handlers run in the order of
    // their registration, so the lock is taken with the child's own.
    KoPlatform::kernelThreadSelf();
    ::pthread_atfork(nullptr, nullptr, takeOverInChild);
}

TKoStartupCaller<watchForks> sForkWatcher KO_INIT_ORDER(KoLoadOrder::BACKTRACE_LOCK);

/// Holds the dump lock, unless the calling thread holds it already.
class CDumpLock
{
public:
    CDumpLock()
    {
        if (sNesting == 0)
        {
            sCriticalSection.section.lock();
        }
        ++sNesting;
    }

    ~CDumpLock()
    {
        --sNesting;
        if (sNesting == 0)
        {
            sCriticalSection.section.unlock();
        }
    }

    CDumpLock(const CDumpLock&) = delete;
    CDumpLock& operator=(const CDumpLock&) = delete;

    bool isNested() const { return sNesting > 1; }
};

void collect(SDump& dump)
{
    KoPlatform::SBacktraceAccessor accessor;
    KoPlatform::bt_init_accessor(accessor, KoPlatform::BT_SELF);
    const bool isMapLoaded = KoPlatform::bt_load_memmap(dump.map) == 0;
    dump.addressCount = KoPlatform::bt_get_backtrace(accessor, dump.addresses, MAX_ADDRESSES);
    dump.mapText[0] = '\0';
    if (!isMapLoaded)
    {
        return;
    }
    if (dump.map.entryCount > KoPlatform::SMemoryMap::MAX_ENTRIES)
    {
        dump.map.entryCount = KoPlatform::SMemoryMap::MAX_ENTRIES;
    }
    const std::size_t size =
        dump.map.entryCount <= SHORT_MAP_ENTRIES ? SHORT_MAP_SIZE : BYTES_PER_MAP_ENTRY * dump.map.entryCount;
    KoPlatform::bt_sprn_memmap(dump.map, dump.mapText, size);
    KoPlatform::bt_unload_memmap(dump.map);
}

void writeAddresses(SDump& dump)
{
    for (int i = 0; i < dump.addressCount; ++i)
    {
        if (i % ADDRESSES_PER_LINE == 0)
        {
            dump.writer.add("\n");
        }
        char address[2 * sizeof(std::uintptr_t) + 2];
        std::snprintf(address, sizeof(address), "%08" PRIXPTR " ", dump.addresses[i]);
        dump.writer.add(address);
    }
}

/// Writes the record to the file at the path of the dump.
void writeFile(SDump& dump, const char* information, const char* header, bool append)
{
    // The name can be foreseen and the directory may be anybody's: neither follow a link nor wait for a
    // reader of a pipe.
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | (append ? O_APPEND : 0);
    const int protFile = KoPlatform::open(dump.path, flags, 0666);
    if (protFile < 0)
    {
        // Not through the C library's stream, which allocates a buffer for its first text.
        dump.writer.begin(STDOUT_FILENO);
        dump.writer.add("Cannot open ").add(dump.path).add("\n").flush();
        return;
    }
    dump.writer.begin(protFile);
    dump.writer.add("\n[QNX backtrace] INFO - ").add(information).add("\n");
    dump.writer.add("\n").add(header).add("\n");
    dump.writer.add("data below is the actual callstack created with QNX libbacktrace.so\n");
    dump.writer.add("usable for analysis with proper project MAP file\n\n");
    writeAddresses(dump);
    dump.writer.add("\n\n").add(dump.mapText).add("\n\n");
    dump.writer.flush();
    ::close(protFile);
}

/// The file's name and the header line come from the information function.
void dumpWithInfos(SDump& dump, const char* information, const char* directory, const char* extension,
                   bool append, KoBacktrace::InfoFunction infos)
{
    CKoString name;
    const CKoString text = infos(name);
    std::snprintf(dump.path, sizeof(dump.path), "%s/%s.%s", directory, name.c_str(), extension);
    writeFile(dump, information, text.c_str(), append);
}

void dumpWithoutInfos(SDump& dump, const char* information, const char* directory, const char* extension,
                      bool append)
{
    char header[48];
    std::snprintf(header, sizeof(header), "TID: %d PID: %d", KoPlatform::threadSelf(), ::getpid());
    std::snprintf(dump.path, sizeof(dump.path), "%s/PID%d.%s", directory, ::getpid(), extension);
    writeFile(dump, information, header, append);
}

/// Reports a null text. \return whether the text is there.
bool check(const char* text, unsigned int line)
{
    if (text == nullptr)
    {
        doCheapAssert(line, "KoBacktrace");
    }
    return text != nullptr;
}

} // namespace

void KoBacktrace::doBacktrace(const CKoString& information, const CKoString& directory,
                              const CKoString& extension, bool append)
{
    // Acquire: pairs with the store in setInfos, so that the function finds what its owner prepared.
    doBacktraceInternal(information.c_str(), directory.c_str(), extension.c_str(), append,
                        sInfos.load(std::memory_order_acquire));
}

void KoBacktrace::doBacktraceNoAlloc(const char* information, const char* directory, const char* extension,
                                     bool append)
{
    const bool hasInformation = check(information, __LINE__);
    const bool hasDirectory = check(directory, __LINE__);
    const bool hasExtension = check(extension, __LINE__);
    if (hasInformation && hasDirectory && hasExtension)
    {
        doBacktraceInternal(information, directory, extension, append, nullptr);
    }
}

void KoBacktrace::doBacktraceInternal(const char* information, const char* directory, const char* extension,
                                      bool append, InfoFunction infos)
{
    const KoErrnoGuard errnoGuard;
    const CDumpLock lock;
    SDump& dump = sDumps[lock.isNested() ? 1 : 0];
    collect(dump);
    // An information function that asserts would assert in the dump of its own assertion, too.
    if (infos != nullptr && !lock.isNested())
    {
        dumpWithInfos(dump, information, directory, extension, append, infos);
        return;
    }
    dumpWithoutInfos(dump, information, directory, extension, append);
}

void KoBacktrace::setInfos(InfoFunction infos)
{
    sInfos.store(infos, std::memory_order_release);
}
