#include "pf/util/CKoPath.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/fuzz/PathModel.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"

namespace
{

/// "ä" in UTF-8: one character of two bytes.
const std::string UMLAUT = "\xC3\xA4";

std::string repeated(const std::string& text, unsigned int count)
{
    std::string result;
    for (unsigned int i = 0; i < count; ++i)
        result += text;
    return result;
}

TEST(CKoPath, splitsAndNormalises)
{
    const struct
    {
        std::string path;
        std::string leaf;
        std::string branch;
        std::string canonical;
    } cases[] = {
        {"", "", "", ""},
        {"abc", "abc", "", "abc"},
        {"a/b/c", "c", "a/b", "a/b/c"},
        {"a/b/c/", "c/", "a/b", "a/b/c"},
        {"a/b/", "b/", "a", "a/b"},
        {"a//b", "b", "a/", "a/b"},
        {"a//", "a//", "", "a"},
        {"/abc", "abc", "/", "/abc"},
        {"//x", "x", "/", "/x"},
        {"/", "", "/", "/"},
        {"//", "", "/", "/"},
        {"//a///b//", "b//", "//a//", "/a/b"},
        {"a/./../b", "b", "a/./..", "a/./../b"},
        {" a\\b ", " a\\b ", "", " a\\b "},
        {"/" + UMLAUT + "//" + UMLAUT + "b", UMLAUT + "b", "/" + UMLAUT + "/",
         "/" + UMLAUT + "/" + UMLAUT + "b"},
    };
    for (const auto& each : cases)
    {
        CKoPath path(each.path.c_str());
        EXPECT_EQ(path.getLeaf().c_str(), each.leaf) << each.path;
        EXPECT_EQ(path.getBranch().c_str(), each.branch) << each.path;
        EXPECT_EQ(path.getString().c_str(), each.path);
        EXPECT_EQ(path.canonify().getOSSpecific().c_str(), each.canonical);
    }
    EXPECT_EQ(CKoPath(("x//" + UMLAUT + "b").c_str()).getLeaf().length(), 2U);
    EXPECT_EQ(CKoPath::canonify((UMLAUT + "//b/").c_str()).length(), 3U);
}

TEST(CKoPath, limitsCharactersWhereItSplitsAndBytesWhereItJoins)
{
    for (const std::string& character : {std::string("a"), UMLAUT, std::string("\xF0\x9F\x98\x80")})
    {
        for (const unsigned int length : {1022U, 1023U, 1024U})
        {
            const std::string text = repeated(character, length - 2) + "/" + character;
            const bool isValid = length < 1024;
            EXPECT_EQ(CKoPath(text.c_str()).isValid(), isValid) << length;
            EXPECT_EQ(CKoPath(text.c_str()).getLeaf().c_str(), isValid ? character : "") << length;
            EXPECT_EQ(KoTest::differenceOfPaths(text, text), "");
        }
        for (const std::size_t bytes : {1022U, 1023U, 1024U})
        {
            const std::string left(bytes - 1 - character.size(), 'a');
            const CKoPath joined = CKoPath(left.c_str()) / character.c_str();
            EXPECT_EQ(joined.getString().byteLength(), bytes < 1024 ? bytes : 0);
            EXPECT_EQ(joined.isValid(), bytes < 1024);
            EXPECT_EQ(KoTest::differenceOfPaths(left, character), "");
        }
    }
    const std::string beyond = repeated("//" + UMLAUT, 2000);
    EXPECT_EQ(CKoPath::canonify(beyond.c_str()).c_str(), repeated("/" + UMLAUT, 2000));
    EXPECT_TRUE(CKoPath(beyond.c_str()).getBranch().isEmpty());
}

TEST(CKoPath, joinsTextsAsTheyAre)
{
    CKoPath path("a/");
    path /= "b";
    EXPECT_STREQ(path.getString().c_str(), "a//b");
    path /= CKoPath("/c");
    EXPECT_STREQ(path.getString().c_str(), "a//b//c");
    const CKoPath& itself = path;
    path /= itself;
    EXPECT_STREQ(path.getString().c_str(), "a//b//c/a//b//c");
    EXPECT_EQ(path.getString().length(), 15U);
    path /= path.getString().c_str() + 13;
    EXPECT_STREQ(path.getString().c_str(), "a//b//c/a//b//c//c");
    EXPECT_STREQ((CKoPath() / static_cast<const char*>(nullptr)).getString().c_str(), "/");

    const KoTest::LogCapture log;
    EXPECT_STREQ((CKoPath("a") / "b\x80").getString().c_str(), "a/b");
    EXPECT_EQ(log.size(), 1U);
}

TEST(CKoPath, comparesCanonicalFormsAndKeepsItsOwn)
{
    const CKoPath left("/a//b");
    const CKoPath right("/a/b/");
    EXPECT_TRUE(left == right);
    EXPECT_FALSE(left != right);
    EXPECT_STREQ(left.getString().c_str(), "/a/b");
    EXPECT_STREQ(right.getString().c_str(), "/a/b/");
    EXPECT_TRUE(left != CKoPath("/A/b"));
    EXPECT_TRUE(left != CKoPath("a/b"));
    EXPECT_TRUE(CKoPath() == CKoPath(""));
}

TEST(CKoPath, knowsRoots)
{
    const std::pair<const char*, bool> cases[] = {
        {"/", true},     {"//", true},  {"C:", true}, {"C:/", true}, {"C:x", true}, {"z://", true},
        {"C:/x", false}, {"1:", false}, {":", false}, {"C", false},  {"", false},   {"/:", false},
    };
    for (const auto& [text, isRoot] : cases)
        EXPECT_EQ(CKoPath(text).isRoot(), isRoot) << text;
    const CKoPath path("//");
    EXPECT_TRUE(path.isRoot());
    EXPECT_STREQ(path.getString().c_str(), "/");
}

TEST(CKoPath, sharesWhatItNeedNotChange)
{
    const CKoString text("/var/lib/station");
    CKoPath path(text);
    const CKoPath root("/");
    const KoTest::AllocationCounter allocations;
    EXPECT_EQ(path.canonify().getString().c_str(), text.c_str());
    EXPECT_EQ(CKoPath("").getLeaf().c_str(), CKoString::null.c_str());
    EXPECT_EQ(root.getLeaf().c_str(), CKoString::null.c_str());
    EXPECT_EQ(allocations.count(), 0U);
    CKoPath::convertSeparators(nullptr);
    CKoPath::setSimulationRoot("/elsewhere");
    EXPECT_EQ(path.getString().c_str(), text.c_str());
}

TEST(CKoPath, agreesWithThePlainRulesOnRandomTexts)
{
    const std::string pieces[] = {"/", "//", "a", "b:", UMLAUT, "\\", ".", " ", "C"};
    std::mt19937 random(8);
    const auto anyText = [&]
    {
        std::string text;
        for (auto left = random() % 12; left != 0; --left)
            text += pieces[random() % std::size(pieces)];
        return text;
    };
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(KoTest::differenceOfPaths(anyText(), anyText()), "");
}

} // namespace
