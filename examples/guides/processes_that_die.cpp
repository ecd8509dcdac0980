// A server that dies while its client waits, the owner of a lock that dies, and memory that outlives both.
#include "pf/oswrapper/CKoBinarySemaphore.h"
#include "pf/oswrapper/CKoSharedMemory.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/oswrapper/KoMutexAccess.h"
#include "pf/platform/KoPlatformChannel.h"
#include "pf/platform/KoPlatformSync.h"

#include <cerrno>
#include <cstdio>
#include <new>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

/// What several processes share. The lock guards the balance.
struct Account
{
    Account() { KoMutexAccess::create(lock, true, true, false); }

    _sync lock;
    CKoBinarySemaphore changed{false, true};
    int first = 0;
    int second = 0; // always the same as the first, but within a locked section
};

/// Runs `body` in a child process that then dies without any clean-up.
template <class Body>
void inProcessThatDies(Body body)
{
    const pid_t child = fork();
    if (child == 0)
    {
        body();
        _exit(0); // as a kill would: no destructor, no unlock
    }
    waitpid(child, nullptr, 0);
}

/// The server takes the message and dies. \return whether the client's call failed because of that.
bool askDyingServer()
{
    int ends[2];
    if (pipe(ends) != 0)
    {
        return false;
    }
    const pid_t server = fork();
    if (server == 0)
    {
        const int channel = KoPlatform::ChannelCreate(0);
        const bool isTold = write(ends[1], &channel, sizeof(channel)) == sizeof(channel);
        int question = 0;
        KoChannelAccess::receive(channel, &question, sizeof(question), 5000, nullptr);
        _exit(isTold ? 0 : 1); // received, never answered
    }
    int channel = -1;
    const bool isTold = read(ends[0], &channel, sizeof(channel)) == sizeof(channel);
    close(ends[0]);
    close(ends[1]);

    int connection = -1;
    const bool isAttached = isTold && KoChannelAccess::attach(connection, channel, server, 0);
    const int question = 42;
    const int status = KoChannelAccess::send(connection, &question, sizeof(question), nullptr, 0);
    const bool hasFailed = isAttached && status == -1 && errno == ESRCH;
    KoPlatform::ConnectDetach(connection);
    waitpid(server, nullptr, 0);
    return hasFailed;
}

bool takeOverFromDeadOwner(Account& account)
{
    inProcessThatDies(
        [&]
        {
            KoMutexAccess::lock(account.lock, -1);
            account.first += 10; // and dies before the second
        });
    if (!KoMutexAccess::lock(account.lock, 1000))
    {
        return false;
    }
    const bool hasOwnerDied = KoPlatform::takeOwnerDied(&account.lock);
    if (hasOwnerDied)
    {
        account.first = account.second; // what was half done is undone
    }
    KoPlatform::pthread_mutex_unlock(&account.lock);
    return hasOwnerDied;
}

bool hearFromTheDead(Account& account)
{
    inProcessThatDies([&] { account.changed.unlock(); });
    return account.changed.lock(1000); // given is given, whoever lives
}

} // namespace

int main()
{
    CKoSharedMemory memory("guide_account", sizeof(Account));
    memory.map(true, false, true);
    if (memory.getAddress() == nullptr)
    {
        std::perror("no shared memory");
        return 1;
    }
    Account& account = *new (memory.getAddress()) Account;
    memory.unlink(); // children inherit the mapping; nothing stays behind

    const bool isTold = askDyingServer();
    std::printf("the call to a dead server fails: %s\n", isTold ? "yes" : "no");
    const bool isTakenOver = takeOverFromDeadOwner(account);
    std::printf("the lock of a dead owner is taken over: %s, balance %d\n", isTakenOver ? "yes" : "no",
                account.first);
    const bool isHeard = hearFromTheDead(account);
    std::printf("a unit given before death is there: %s\n", isHeard ? "yes" : "no");

    account.~Account();
    return isTold && isTakenOver && isHeard ? 0 : 1;
}
