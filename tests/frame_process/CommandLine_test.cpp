// The command line of a process of its own, with option files.

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Texts = std::vector<std::string>;
using Environment = std::vector<std::pair<std::string, const char*>>;

KoTest::ChildResult run(const Texts& arguments, Environment environment = {})
{
    environment.emplace_back("KO_ASSERTION_BACKTRACE_DIR", "/nonexistent");
    return KoTest::ChildProcess::execute({KO_OPTIONS_PROBE, arguments, environment, {}});
}

std::string joined(const Texts& texts, const char* separator)
{
    std::string result;
    for (const std::string& text : texts)
    {
        result += (result.empty() ? "" : separator) + text;
    }
    return result;
}

/// What the probe prints when these are all its arguments; the first `own` came from its command line.
std::string outputFor(const Texts& arguments, std::size_t own)
{
    std::string lines;
    for (const std::string& text : arguments)
    {
        lines += text + '\n';
    }
    const Texts line(arguments.begin(), arguments.begin() + static_cast<std::ptrdiff_t>(own));
    return "count: " + std::to_string(arguments.size() + 1) + '\n' + lines +
           "bounds: 1\nline: " + joined(line, " ") + '\n';
}

class CommandLine : public testing::Test
{
protected:
    std::string path(const char* name) const { return m_directory.file(name); }

    /// An option file of these lines. \return the argument that names it.
    std::string optionFile(const char* name, const Texts& lines) const
    {
        m_directory.write(name, "[COMMANDLINE]\n" + joined(lines, "\n") + "\n");
        return '@' + path(name);
    }

private:
    KoTest::TemporaryDirectory m_directory;
};

TEST_F(CommandLine, looksUpOptions)
{
    struct Case
    {
        Texts arguments;
        const char* names;
        std::string found; ///< of each name whether it is set, and its value
        std::string foundByMinus;
    };
    const Case cases[] = {
        {{"-v", "--size=10", "-n", "5", "/tmp"},
         "v size -n --n tmp si sizes 5",
         "v 1 (none)\nsize 1 10\n-n 1 5\n--n 1 5\ntmp 1 (none)\nsi 0 (none)\nsizes 0 (none)\n5 0 (none)\n",
         "v 1 (none)\nsize 1 10\n-n 1 5\n--n 1 5\ntmp 0 (none)\nsi 0 (none)\nsizes 0 (none)\n5 0 (none)\n"},
        {{"-n", "-v", "-n=", "--n=2", "/v=x"}, "n v", "n 1 \nv 1 x\n", "n 1 \nv 1 (none)\n"},
        {{"-o", "/p", "x"}, "o p", "o 1 (none)\np 1 x\n", "o 1 /p\np 0 (none)\n"},
        {{"-/-v=1"}, "v /v", "v 1 1\n/v 1 1\n", "v 0 (none)\n/v 0 (none)\n"},
        {{"--=5", "-y", "z"}, "- Y", "- 1 5\nY 0 (none)\n", "- 1 5\nY 0 (none)\n"}};
    for (const Case& each : cases)
    {
        const KoTest::ChildResult result = run(each.arguments, {{"KO_QUERIES", each.names}});
        std::string expected = outputFor(each.arguments, each.arguments.size());
        expected.insert(expected.find("line: "), each.found + "prefixes: 1 0\n" + each.foundByMinus);
        EXPECT_EQ(result.standardOutput, expected);
        EXPECT_THAT(result.log, IsEmpty());
    }
}

TEST_F(CommandLine, takesAHundredArgumentsAndRefusesMore)
{
    Texts arguments(99, "-x");
    arguments.back() = "last";
    EXPECT_EQ(run(arguments).standardOutput, outputFor(arguments, 99));
    arguments.emplace_back("one more");

    const KoTest::ChildResult refused = run(arguments);

    // As soon as a call has refused them, the start-up options find no arguments either.
    EXPECT_EQ(refused.standardOutput, "count: 0\nbounds: 1\nline: \n");
    const Texts texts = refused.logTexts();
    ASSERT_GE(texts.size(), 4U) << "each call asks anew; the logger's queue may lose later lines";
    for (std::size_t i = 0; i < 4; i += 2)
    {
        EXPECT_EQ(texts[i],
                  "KoCommandLineOptions: _argc corrupt due to bug in statically linked libc on ARM");
        EXPECT_EQ(texts[i + 1], "KoCommandLineOptions: command line arguments will NOT be evaluated");
        EXPECT_EQ(refused.log[i].severity, 4);
    }
    EXPECT_EQ(refused.exitStatus, 0);
}

TEST_F(CommandLine, isExtendedByOptionFiles)
{
    const std::string inner = optionFile("inner", {"from inner", "@" + path("none")});
    const std::string outer = optionFile("outer", {"-v", "size=3", inner, "  -x 5", "[OTHER]", "hidden"});
    const Texts own = {"first", outer, "--memtrace=0", "@"};
    Texts all = own;
    all.insert(all.end(), {"-v", "size=3", inner, "  -x 5", "from inner", "@" + path("none")});

    const KoTest::ChildResult result = run(own);

    EXPECT_EQ(result.standardOutput, outputFor(all, own.size()));
    EXPECT_THAT(result.logTexts(), ElementsAre("Error opening command line option file ",
                                               "Error opening command line option file " + path("none")));
    EXPECT_EQ(result.log[0].severity, 2);
}

TEST_F(CommandLine, holds256ArgumentsWhoseTextsStay)
{
    Texts lines;
    for (std::size_t i = 0; i < 300; ++i)
    {
        lines.push_back(std::to_string(i) + std::string(i * 37 % 1020, 'x'));
    }
    const std::string file = optionFile("file", lines);
    lines.resize(254);
    lines.insert(lines.begin(), file);
    EXPECT_EQ(run({file}).standardOutput, outputFor(lines, 1));

    const std::string self = optionFile("self", {"-a", "@" + path("self"), "-b"});
    Texts repeated = {self};
    while (repeated.size() < 255)
    {
        const Texts round = {"-a", self, "-b"};
        repeated.insert(repeated.end(), round.begin(), round.end());
    }
    repeated.resize(255);
    EXPECT_EQ(run({self}).standardOutput, outputFor(repeated, 1)) << "a file that names itself";
}

TEST_F(CommandLine, isBuiltOnceForAllThreads)
{
    Texts lines(200, "text");
    const std::string file = optionFile("file", lines);
    lines.insert(lines.begin(), file);
    for (int round = 0; round < 5; ++round)
    {
        const KoTest::ChildResult result = run({file}, {{"KO_THREADS", "8"}});
        EXPECT_EQ(result.standardOutput, "different: 0\n" + outputFor(lines, 1)) << result.describe();
    }
}

TEST_F(CommandLine, dropsALineForWhichThereIsNoMemory)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const std::string file = optionFile("file", {"-a", std::string(1000, 'x'), std::string(1000, 'y'), "-c"});
    const std::string complete = run({file}).standardOutput;
    unsigned int dropped = 0;
    bool isComplete = false;
    for (int n = 1; n < 20 && !isComplete; ++n)
    {
        const std::string number = std::to_string(n);
        const KoTest::ChildResult result = run({file}, {{"KO_FAILING", number.c_str()}});
        if (result.exitStatus != 0)
        {
            EXPECT_EQ(result.exitStatus, 1) << "a checked allocation: " << result.describe();
            continue;
        }
        isComplete = result.standardOutput == complete;
        if (!isComplete)
        {
            ++dropped;
            EXPECT_THAT(result.standardOutput, HasSubstr("count: 5\n"));
            EXPECT_THAT(result.logTexts()[0],
                        testing::MatchesRegex(
                            "KoCommandLineOptions:[0-9]+: ASSERTION \"no memory for an argument\" failed"));
        }
    }
    EXPECT_EQ(dropped, 2U) << "of two blocks of text";
    EXPECT_TRUE(isComplete);
}

} // namespace
