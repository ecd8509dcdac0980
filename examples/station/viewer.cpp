// viewer --configuration FILE: asks the recorder that the directory's file tells of for the memory with the
// newest values, and prints them until the sampler has ended. It may come late, stay longer than a recorder,
// and be killed at any time.
//
// Exit status: 0 = it has seen the end, 2 = nobody gave it the memory, or the values stand still for too
// long, or there is no configuration.

#include <cstdio>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "CommandLine.h"
#include "Message.h"
#include "Rendezvous.h"
#include "Settings.h"
#include "SharedValues.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformChannel.h"

namespace
{

constexpr int FAILED = 2;
constexpr int ANSWER_MS = 500;
constexpr int MEMORY_MS = 10000; ///< how long a recorder that has the memory is waited for
constexpr int PRINT_MS = 100;
constexpr int MOST_STILL = 300; ///< looks in a row without a new value: the sampler is gone

/// Asks a recorder. \return the stream that the memory is in; nothing if there is no such recorder.
std::optional<CKoByteStream> ask(const Address& recorder)
{
    int connection = -1;
    if (!KoChannelAccess::attach(connection, recorder.channel, recorder.pid, 0))
    {
        return std::nullopt;
    }
    const CKoByteStream question = Message::make(Message::VIEW);
    unsigned char bytes[Message::LARGEST];
    // A message that is sent is only read.
    const iovec sent{const_cast<unsigned char*>(question.getData()), question.length()};
    const iovec received{bytes, sizeof(bytes)};
    const int size = KoChannelAccess::sendv(connection, &sent, 1, &received, 1, ANSWER_MS);
    KoPlatform::ConnectDetach(connection);
    if (size <= 0)
    {
        return std::nullopt;
    }
    CKoByteStream answer;
    answer.write(bytes, static_cast<unsigned int>(size));
    return answer;
}

/// Waits for a recorder that has the memory.
SharedValues findValues(const std::string& directory)
{
    const Rendezvous rendezvous(directory);
    const unsigned long long deadline = KoOperatingSystem::calculateKernelTimeout(MEMORY_MS);
    while (KoOperatingSystem::getMonotonicTime(nullptr) < deadline)
    {
        const std::optional<Address> recorder = rendezvous.read();
        const std::optional<CKoByteStream> answer = recorder ? ask(*recorder) : std::nullopt;
        if (answer)
        {
            SharedValues::Reference memory;
            *answer >> memory;
            return SharedValues(memory);
        }
        KoOperatingSystem::sleepMs(PRINT_MS);
    }
    return SharedValues();
}

/// \return whether the sampler ended in order.
bool view(const SharedValues& values)
{
    unsigned int seen = 0;
    for (int still = 0; still < MOST_STILL && !values.isOver(); ++still)
    {
        if (values.samples() != seen)
        {
            seen = values.samples();
            still = 0;
            values.print();
        }
        KoOperatingSystem::sleepMs(PRINT_MS);
    }
    values.print();
    return values.isOver();
}

int run()
{
    const std::vector<const char*> arguments = CommandLine::arguments();
    std::string configuration;
    CLI::App app("Prints the newest values that a sampler shares.");
    app.add_option("--configuration", configuration, "where the recorder tells its address")->required();
    CLI11_PARSE(app, static_cast<int>(arguments.size()), arguments.data());
    const std::optional<Settings> settings = Settings::read(configuration);
    if (!settings)
    {
        return FAILED;
    }
    const SharedValues values = findValues(settings->directory);
    if (!values.isUsable())
    {
        std::fprintf(stderr, "viewer: nobody shares values\n");
        return FAILED;
    }
    return view(values) ? 0 : FAILED;
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int status = run();
    CommandLine::tellBytesInUse();
    return status;
}
