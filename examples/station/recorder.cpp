// recorder --configuration FILE [--xml]: receives samples, appends them to the file that the configuration
// names, and prints a report when it is told to finish. It goes on with the file that another recorder
// left behind. It hands the memory with the newest values, which it has from the sampler, on to viewers.
// Where it receives is told in a file of the configuration's directory.
//
// Exit status: 0 = the report was printed, 2 = nobody sent anything for too long, or there was no channel,
// no file to record in, or no configuration.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "CommandLine.h"
#include "Ledger.h"
#include "Message.h"
#include "RecordFile.h"
#include "Rendezvous.h"
#include "ReportWriter.h"
#include "Settings.h"
#include "SharedValues.h"
#include "pf/oswrapper/KoChannelAccess.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformChannel.h"

namespace
{

constexpr int MODULE = 2;
constexpr int PATIENCE_MS = 30000; ///< without any message
constexpr int FAILED = 2;

/// A message as it came in, and the id to reply to.
struct Received
{
    int id = -1;
    CKoByteStream content;
};

class Recorder
{
public:
    /// Records in the file, behind what the ledger knows of it already.
    Recorder(Ledger& ledger, RecordWriter& file)
        : m_channel(KoPlatform::ChannelCreate(KoPlatform::CHANNEL_FIXED_PRIORITY))
        , m_ledger(ledger)
        , m_file(file)
    {
    }
    ~Recorder() { KoPlatform::ChannelDestroy(m_channel); }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    int channel() const { return m_channel; }

    /// Records that it begins, and receives until it is told to finish. \return whether it was; if not, the
    /// reason is in `errno`.
    bool run();

private:
    bool receive(Received& message) const;
    bool answer(const Received& message);
    void takeMemory(const Received& message);
    void giveMemory(const Received& message) const;
    Ledger::Outcome takeFromSampler(const CKoByteStream& message);

    int m_channel;
    bool m_isFinished = false;
    Ledger& m_ledger;
    RecordWriter& m_file;
    SharedValues m_values; ///< of the last sampler that has sent them
};

bool Recorder::run()
{
    const CKoByteStream start = Message::make(Message::START, Message::Start{Message::wallClock()});
    Received message;
    m_ledger.take(start);
    bool isGoingOn = m_file.append(start);
    while (isGoingOn && !m_isFinished)
    {
        isGoingOn = receive(message) && answer(message);
    }
    return m_isFinished;
}

bool Recorder::receive(Received& message) const
{
    unsigned char bytes[Message::LARGEST];
    _msg_info info{};
    message.id = KoChannelAccess::receive(m_channel, bytes, sizeof(bytes), PATIENCE_MS, &info);
    message.content = CKoByteStream();
    // What is too long stays empty, and is refused for that.
    if (message.id > 0 && info.srcmsglen <= static_cast<int>(sizeof(bytes)))
    {
        message.content.write(bytes, static_cast<unsigned int>(info.srcmsglen));
    }
    return message.id > 0;
}

bool Recorder::answer(const Received& message)
{
    if (message.content == Message::make(Message::FINISH))
    {
        // A sampler that has given up meanwhile asks again.
        m_isFinished = KoPlatform::MsgReply(message.id, 0, nullptr, 0) == 0;
        return true;
    }
    const unsigned int kind = Message::kindOf(CKoByteStream(message.content));
    switch (kind)
    {
    case Message::VALUES:
        takeMemory(message);
        return true;
    case Message::VIEW:
        giveMemory(message);
        return true;
    default:
        break;
    }
    const Ledger::Outcome outcome = takeFromSampler(message.content);
    if (outcome == Ledger::Outcome::NOT_UNDERSTOOD)
    {
        KoPlatform::MsgError(message.id, EINVAL);
        return true;
    }
    if (outcome == Ledger::Outcome::TAKEN && !m_file.append(message.content))
    {
        return false;
    }
    if (outcome == Ledger::Outcome::TAKEN && kind == Message::SAMPLE)
    {
        m_values.countKept();
    }
    KoPlatform::MsgReply(message.id, 0, nullptr, 0);
    return true;
}

void Recorder::takeMemory(const Received& message)
{
    const CKoByteStream content(message.content);
    SharedValues::Reference memory;
    Message::kindOf(content);
    content >> memory;
    SharedValues values(memory);
    if (!values.isUsable())
    {
        KoPlatform::MsgError(message.id, EINVAL);
        return;
    }
    m_values = std::move(values);
    KoPlatform::MsgReply(message.id, 0, nullptr, 0);
}

/// A viewer that is killed before it has read the reference leaves it to be settled at the end.
void Recorder::giveMemory(const Received& message) const
{
    if (!m_values.isUsable())
    {
        KoPlatform::MsgError(message.id, ENODATA);
        return;
    }
    CKoByteStream answer;
    answer << m_values.memory();
    const int size = static_cast<int>(answer.length());
    KoPlatform::MsgReply(message.id, size, answer.getData(), size);
}

Ledger::Outcome Recorder::takeFromSampler(const CKoByteStream& message)
{
    const bool isStart = Message::kindOf(CKoByteStream(message)) == Message::START;
    return isStart ? Ledger::Outcome::NOT_UNDERSTOOD : m_ledger.take(message);
}

/// Learns what another recorder left behind. \return where in the file to go on; nothing if that is
/// impossible.
std::optional<unsigned long long> learn(const CKoPath& path, Ledger& ledger)
{
    RecordReader known(path);
    if (!known.isOpen())
    {
        return errno == ENOENT ? std::optional(0ULL) : std::nullopt;
    }
    ledger.load(known);
    if (!known.isRecordFile())
    {
        errno = EBADMSG;
        return std::nullopt;
    }
    std::printf("recorder %d: goes on behind %llu samples, at byte %llu of %s\n",
                KoOperatingSystem::getCurrentPID(), ledger.samples(), known.end(), path.getString().c_str());
    return known.end();
}

int fail(const char* what)
{
    std::fprintf(stderr, "recorder: %s: %s\n", what, std::strerror(errno));
    return FAILED;
}

/// Tells samplers where to send, and records until it is told to finish.
int record(const std::string& directory, Ledger& ledger, RecordWriter& file)
{
    Recorder recorder(ledger, file);
    if (recorder.channel() < 0)
    {
        return fail("no channel");
    }
    const Address address{KoOperatingSystem::getCurrentPID(), recorder.channel()};
    const Rendezvous rendezvous(directory);
    if (!rendezvous.publish(address))
    {
        return fail("nobody can be told of the channel");
    }
    std::printf("recorder %d: receives on channel %d\n", address.pid, address.channel);
    KoSyslog::logMsg(MODULE, KoSyslog::Notice, "receives on channel %d", address.channel);
    const bool isFinished = recorder.run();
    const int status = isFinished ? 0 : fail("cannot go on");
    rendezvous.remove();
    return status;
}

int run()
{
    const std::vector<const char*> arguments = CommandLine::arguments();
    std::string configuration;
    ReportWriter::Form form;
    CLI::App app("Receives samples, records them, and prints a report when it is told to finish.");
    app.add_option("--configuration", configuration, "where to record, and to tell samplers where to send")
        ->required();
    app.add_flag("--xml", form.asXml, "print the report as XML");
    CLI11_PARSE(app, static_cast<int>(arguments.size()), arguments.data());
    const std::optional<Settings> settings = Settings::read(configuration);
    if (!settings)
    {
        return FAILED;
    }

    Ledger ledger;
    const std::optional<unsigned long long> end = learn(settings->records, ledger);
    if (!end)
    {
        return fail("no file to go on with");
    }
    RecordWriter file(settings->records, *end);
    if (!file.isOpen())
    {
        return fail("no file to record in");
    }
    const int status = record(settings->directory, ledger, file);
    if (status != 0)
    {
        return status;
    }
    return ReportWriter::print(ledger, form) ? 0 : fail("standard output");
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int status = run();
    CommandLine::tellBytesInUse();
    return status;
}
