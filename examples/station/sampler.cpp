// sampler --configuration FILE: reads figures of the system, each at its own period, and sends every sample
// to the recorder that the directory's file tells of. A recorder that ends is reported, and its successor
// gets what was not acknowledged. The newest values lie in memory that recorder and viewers share. After the
// given time the recorder is told to finish. Directory, time and sources are those of the configuration.
//
// Exit status: 0 = everything was acknowledged, 2 = no recorder took the rest, or there is no configuration.

#include <cstdint>
#include <cstdio>
#include <list>
#include <string>

#include <CLI/CLI.hpp>

#include "CommandLine.h"
#include "RecorderLink.h"
#include "Settings.h"
#include "SharedValues.h"
#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/oswrapper/CLogicalTimerManager.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"

namespace
{

constexpr int MODULE = 1;
constexpr int POLL_MS = 20;             ///< how soon a new recorder is seen
constexpr int LAST_RECORDER_MS = 20000; ///< how long a recorder is waited for at the end
constexpr int FAILED = 2;
constexpr std::int64_t NS_PER_MS = 1000000;

std::int64_t now()
{
    return static_cast<std::int64_t>(KoOperatingSystem::getMonotonicTime(nullptr));
}

/// Reads one source whenever its timer expires.
class Probe final : public CLogicalTimer
{
public:
    /// Its values go to the row of this index.
    Probe(CLogicalTimerManager& manager, const Source& source, RecorderLink& link, SharedValues& values,
          unsigned int row, const CKoDateAndTime& run)
        : CLogicalTimer(manager)
        , m_source(source)
        , m_link(link)
        , m_values(values)
        , m_row(row)
        , m_run(run)
    {
        link.addSource({run, source.name, source.unit, source.periodMs});
    }

    void begin()
    {
        m_expiry = now();
        start(m_source.periodMs, false);
    }

private:
    void onTimeout() override;

    Source m_source;
    RecorderLink& m_link;
    SharedValues& m_values;
    unsigned int m_row;
    CKoDateAndTime m_run;
    unsigned int m_samples = 0;
    std::int64_t m_expiry = 0; ///< on the grid that begins with the start of the timer
};

void Probe::onTimeout()
{
    m_expiry += m_source.periodMs * NS_PER_MS;
    const std::int64_t lateness = now() - m_expiry;
    const CKoDateAndTime taken = Message::wallClock();
    const std::optional<std::uint64_t> value = m_source.read();
    if (!value)
    {
        KoSyslog::logMsg(MODULE, KoSyslog::Warning, "nothing to read in %s", m_source.path.c_str());
        return;
    }
    m_values.set(m_row, *value);
    m_link.add({taken, m_source.name, *value, m_run, m_samples++, lateness});
}

/// Ends the run.
class RunTime final : public CLogicalTimer
{
public:
    using CLogicalTimer::CLogicalTimer;

    bool isOver() const { return m_isOver; }

private:
    void onTimeout() override { m_isOver = true; }

    bool m_isOver = false;
};

void sample(const Settings& settings, RecorderLink& link, SharedValues& values)
{
    CLogicalTimerManager manager(POLL_MS, false);
    const CKoDateAndTime run = Message::wallClock();
    std::list<Probe> probes; // timers stay where they are
    for (const Source& source : settings.sources)
    {
        probes.emplace_back(manager, source, link, values, static_cast<unsigned int>(probes.size()), run);
    }
    RunTime runTime(manager);
    runTime.start(settings.seconds * 1000U, true);
    for (Probe& probe : probes)
    {
        probe.begin();
    }
    while (!runTime.isOver())
    {
        manager.performWork();
        link.deliver();
    }
}

bool finish(RecorderLink& link)
{
    const unsigned long long deadline = KoOperatingSystem::calculateKernelTimeout(LAST_RECORDER_MS);
    while (!link.finish())
    {
        if (KoOperatingSystem::getMonotonicTime(nullptr) >= deadline)
        {
            return false;
        }
        KoOperatingSystem::sleepMs(POLL_MS);
    }
    return true;
}

int run()
{
    const std::vector<const char*> arguments = CommandLine::arguments();
    std::string configuration;
    CLI::App app("Samples figures of the system and sends them to a recorder.");
    app.add_option("--configuration", configuration, "what to sample, and for how long")->required();
    CLI11_PARSE(app, static_cast<int>(arguments.size()), arguments.data());
    const std::optional<Settings> settings = Settings::read(configuration);
    if (!settings)
    {
        return FAILED;
    }

    SharedValues values = SharedValues::begin(settings->sources);
    RecorderLink link(settings->directory);
    if (values.isUsable())
    {
        link.share(values);
    }
    sample(*settings, link, values);
    const bool isFinished = finish(link);
    values.end();
    if (!isFinished)
    {
        std::fprintf(stderr, "sampler: no recorder took the rest\n");
        return FAILED;
    }
    std::printf("sampler: %u samples sent, restarts of the recorder: %u\n", link.samples(), link.restarts());
    return 0;
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int status = run();
    CommandLine::tellBytesInUse();
    return status;
}
