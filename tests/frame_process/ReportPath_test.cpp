#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "pf/containers/TKoVector.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr int SEVERITY_CRITICAL = 1;
constexpr int SEVERITY_ERROR = 2;
constexpr int OPCODE = 10000;

/// Runs the probe, which inserts out of range, as a process of its own.
class ReportPath : public testing::Test
{
protected:
    using Environment = std::vector<std::pair<std::string, const char*>>;

    KoTest::ChildResult insertOutOfRange(int times, const Environment& environment = {})
    {
        KoTest::ChildProcess::Program program{KO_REPORT_PROBE, {std::to_string(times)}, {}, {}};
        program.environment = {{"KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str()}};
        program.environment.insert(program.environment.end(), environment.begin(), environment.end());
        return KoTest::ChildProcess::execute(program);
    }

    std::string backtraceName(const KoTest::ChildResult& result) const
    {
        return "PID" + std::to_string(result.pid) + ".ass";
    }

    KoTest::TemporaryDirectory m_directory;
};

/// The parts of one backtrace record.
struct Record
{
    std::string information;
    std::string header;
    std::vector<std::string> addressLines;
    std::vector<unsigned long long> addresses;
    std::vector<std::string> map;
};

std::string nextLine(std::istringstream& stream)
{
    std::string line = "<end of record>";
    std::getline(stream, line);
    return line;
}

void takeAddresses(const std::string& line, Record& record)
{
    record.addressLines.push_back(line);
    std::istringstream words(line);
    for (std::string word; words >> word;)
    {
        record.addresses.push_back(std::strtoull(word.c_str(), nullptr, 16));
    }
}

/// Takes a record apart and checks every fixed line of it.
Record parseRecord(std::istringstream& stream)
{
    Record record;
    EXPECT_EQ(nextLine(stream), "");
    record.information = nextLine(stream);
    EXPECT_EQ(nextLine(stream), "");
    record.header = nextLine(stream);
    EXPECT_EQ(nextLine(stream), "data below is the actual callstack created with QNX libbacktrace.so");
    EXPECT_EQ(nextLine(stream), "usable for analysis with proper project MAP file");
    EXPECT_EQ(nextLine(stream), "");
    EXPECT_EQ(nextLine(stream), "");
    std::string line = nextLine(stream);
    for (; !line.empty(); line = nextLine(stream))
    {
        takeAddresses(line, record);
    }
    for (line = nextLine(stream); !line.empty() && !stream.eof(); line = nextLine(stream))
    {
        record.map.push_back(line);
    }
    EXPECT_EQ(nextLine(stream), "");
    return record;
}

/// Whether a return address lies in the code whose bounds the probe printed first.
bool hasAddressInCode(const Record& record, const std::string& output)
{
    char* rest = nullptr;
    const auto begin = std::strtoull(output.c_str(), &rest, 16);
    const auto end = std::strtoull(rest, nullptr, 16);
    EXPECT_LT(begin, end);
    return std::any_of(record.addresses.begin(), record.addresses.end(),
                       [=](unsigned long long address) { return address > begin && address <= end; });
}

/// The line number in "\nTKoVector:34: ...".
std::string sourceLine(const std::string& report)
{
    const std::size_t begin = report.find(':') + 1;
    const std::string line = report.substr(begin, report.find(':', begin) - begin);
    EXPECT_THAT(line, MatchesRegex("[1-9][0-9]*"));
    return line;
}

TEST_F(ReportPath, insertionOutOfRangeIsReportedInFullAndTheProcessGoesOn)
{
    const KoTest::ChildResult result = insertOutOfRange(1);

    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_THAT(result.standardOutput, HasSubstr("1 2 3 goes on\n"));

    const std::string line = sourceLine(result.standardError);
    EXPECT_EQ(result.standardError, "\nTKoVector:" + line + ": ASSERTION \"Index our of range\" failed\n");

    const std::string prefix = "pid " + std::to_string(result.pid) + ": ";
    ASSERT_EQ(result.log.size(), 2U) << result.describe();
    EXPECT_EQ(result.log[0].severity, SEVERITY_ERROR);
    EXPECT_EQ(result.log[0].opcode, OPCODE);
    EXPECT_EQ(result.log[0].text, prefix + "TKoVector:" + line + ": ASSERTION \"Index our of range\" failed");
    EXPECT_EQ(result.log[1].severity, SEVERITY_CRITICAL);
    EXPECT_EQ(result.log[1].opcode, OPCODE);
    EXPECT_EQ(result.log[1].text, prefix + "ASSERTION \"Index our of range\" failed in TKoVector " + line);
    EXPECT_THAT(m_directory.names(), ElementsAre(backtraceName(result)));
}

TEST_F(ReportPath, backtraceFileHoldsHeaderClientFramesAndMap)
{
    const KoTest::ChildResult result = insertOutOfRange(1);
    std::istringstream stream(m_directory.read(backtraceName(result)));
    const Record record = parseRecord(stream);
    EXPECT_EQ(stream.peek(), std::istringstream::traits_type::eof());

    EXPECT_THAT(record.information,
                MatchesRegex("\\[QNX backtrace\\] INFO - ASSERTION \"Index our of range\" "
                             "failed in TKoVector [0-9]+"));
    EXPECT_EQ(record.header, "TID: 1 PID: " + std::to_string(result.pid));
    ASSERT_FALSE(record.addressLines.empty());
    for (std::size_t i = 0; i < record.addressLines.size(); ++i)
    {
        EXPECT_THAT(record.addressLines[i], MatchesRegex("([0-9A-F]+ )+"));
        const bool isLast = i + 1 == record.addressLines.size();
        const auto words = std::count(record.addressLines[i].begin(), record.addressLines[i].end(), ' ');
        EXPECT_TRUE(words == 6 || (isLast && words < 6)) << record.addressLines[i];
    }

    EXPECT_TRUE(hasAddressInCode(record, result.standardOutput)) << m_directory.read(backtraceName(result));
    EXPECT_THAT(record.map, testing::Contains(HasSubstr("report_probe")));
    EXPECT_THAT(record.map, testing::Contains(HasSubstr("libsys_vanta.gpp.so.7")));
}

TEST_F(ReportPath, limitedBacktracesAreAppendedToOneFileAndLaterReportsStillLogged)
{
    const KoTest::ChildResult result = insertOutOfRange(4, {{"KO_ASSERTION_BACKTRACE_MAX", "3"}});

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.log.size(), 8U) << result.describe();
    std::istringstream stream(m_directory.read(backtraceName(result)));
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_THAT(parseRecord(stream).information, HasSubstr("Index our of range"));
    }
    EXPECT_EQ(stream.peek(), std::istringstream::traits_type::eof());
}

TEST_F(ReportPath, abortSwitchEndsTheProcessAfterItsLinesAndBeforeTheBacktrace)
{
    const KoTest::ChildResult result = insertOutOfRange(1, {{"KO_ENABLE_ABORT_ON_ASSERTION", ""}});

    EXPECT_EQ(result.signal, SIGABRT) << result.describe();
    ASSERT_EQ(result.log.size(), 2U);
    EXPECT_EQ(result.log[0].severity, SEVERITY_ERROR);
    EXPECT_EQ(result.log[1].severity, SEVERITY_CRITICAL);
    EXPECT_THAT(result.standardError, testing::StartsWith("\nTKoVector:"));
    EXPECT_THAT(result.standardOutput, testing::Not(HasSubstr("goes on")));
    EXPECT_TRUE(m_directory.names().empty());
}

TEST_F(ReportPath, missingDirectoryAndLoggerLeaveTheProcessGoing)
{
    const std::string missing = m_directory.file("missing");
    const KoTest::ChildResult result = insertOutOfRange(
        1, {{"KO_PLATFORM_LOG", missing.c_str()}, {"KO_ASSERTION_BACKTRACE_DIR", missing.c_str()}});
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_THAT(result.standardOutput, HasSubstr("1 2 3 goes on\n"));
    EXPECT_THAT(result.standardOutput,
                HasSubstr("Cannot open " + missing + "/" + backtraceName(result) + "\n"));
    EXPECT_THAT(result.standardError, testing::StartsWith("\nTKoVector:"));
    EXPECT_TRUE(result.log.empty()) << result.describe();
}

TEST_F(ReportPath, interruptionsAndShortWritesCutNothing)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [this]
        {
            setenv("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str(), 1);
            const KoTest::FailingCall opening(KoTest::FAULT_OPEN, EINTR, 2);
            const KoTest::FailingCall reading(KoTest::FAULT_READ, EINTR, 3);
            const KoTest::FailingCall writing(KoTest::FAULT_WRITE, EINTR, 3, 1);
            const KoTest::ShortTransfer shortReads(KoTest::FAULT_READ, 11);
            const KoTest::ShortTransfer shortWrites(KoTest::FAULT_WRITE, 7);
            TKoVector<int>().insert(1, 5);
            return opening.failed() == 2 && reading.failed() == 3 && writing.failed() == 3 ? EXIT_SUCCESS
                                                                                           : EXIT_FAILURE;
        });

    EXPECT_EQ(result.exitStatus, EXIT_SUCCESS) << result.describe();
    EXPECT_EQ(result.log.size(), 2U);
    std::istringstream stream(m_directory.read(backtraceName(result)));
    const Record record = parseRecord(stream);
    EXPECT_EQ(stream.peek(), std::istringstream::traits_type::eof());
    EXPECT_THAT(record.information, HasSubstr("Index our of range"));
    EXPECT_THAT(record.map, testing::Contains(HasSubstr("libsys_vanta.gpp.so.7")));
}

} // namespace
