#include "pf/util/KoDirectory.h"

#include <cerrno>
#include <climits>
#include <set>

#include <dlfcn.h>

#include "tests/support/SignalStorm.h"
#include "tests/util/FileTesting.h"
#include "tests/util/NarrowDirectory.h"

namespace
{

using namespace KoTest;

/// Files of this initial have numbers beyond 32 bits.
constexpr char FAR_INITIAL = 'F';
constexpr unsigned long long FAR_NUMBER = 1ULL << 40U;

} // namespace

/// Stands in front of the C library's function.
extern "C" dirent64* readdir64(DIR* directory)
{
    static const auto read = reinterpret_cast<dirent64* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir64"));
    dirent64* const entry = read(directory);
    if (entry != nullptr && entry->d_name[0] == FAR_INITIAL)
        entry->d_ino |= FAR_NUMBER;
    return entry;
}

namespace
{

using Entries = std::map<std::string, unsigned long long>;

/// Reads a directory to its end.
template <typename Entry>
Entries entriesBy(int (*readEntry)(DIR*, Entry*, Entry**), const std::string& path)
{
    Entries entries;
    DIR* const directory = vanta_qnx_safe_opendir(path.c_str());
    Entry entry{};
    Entry* found = &entry;
    while (readEntry(directory, &entry, &found) == 0 && found == &entry)
        EXPECT_TRUE(entries.emplace(entry.d_name, entry.d_ino).second);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(vanta_qnx_safe_closedir(directory), 0);
    return entries;
}

std::set<std::string> namesOf(const Entries& entries)
{
    std::set<std::string> names;
    for (const auto& entry : entries)
        names.insert(entry.first);
    return names;
}

TEST(KoDirectory, ReadsEveryEntryOnceThroughInterruptions)
{
    const TemporaryDirectory directory;
    std::set<std::string> names = {".", ".."};
    EXPECT_EQ(namesOf(entriesBy(vanta_qnx_safe_readdir_r, directory.path())), names);
    EXPECT_EQ(namesOf(entriesBy(vanta_qnx_safe_readdir64_r, directory.path())), names);

    names.insert({std::string(255, 'n'), "\xFF is no UTF-8"});
    for (int i = 0; i < 500; ++i)
        names.insert("entry" + std::to_string(i));
    for (const std::string& name : names)
        if (name[0] != '.')
            directory.write(name, "");
    const std::ptrdiff_t before = openDescriptors();
    const SignalStorm storm(SignalStorm::CALLING_THREAD, 200);
    const Entries entries = entriesBy(vanta_qnx_safe_readdir64_r, directory.path());
    EXPECT_EQ(namesOf(entries), names);
    EXPECT_EQ(entriesBy(vanta_qnx_safe_readdir_r, directory.path()), entries);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(KoDirectory, GivesEveryProgramTheRecordOfItsOwnWidth)
{
    const TemporaryDirectory directory;
    for (const std::string& name : {std::string("a"), std::string("Far"), std::string(255, 'n')})
        directory.write(name, "");
    const Entries wide = entriesBy(vanta_qnx_safe_readdir64_r, directory.path());
    EXPECT_GT(wide.at("Far"), FAR_NUMBER);
    Entries expected = wide;
    for (auto entry = expected.begin(); entry != expected.end();)
        entry = sizeof(long) == 4 && entry->second > UINT_MAX ? expected.erase(entry) : std::next(entry);
    const DirectoryContent narrow = readNarrowDirectory(directory.path());
    EXPECT_EQ(narrow.entries, expected);
    EXPECT_EQ(narrow.refused, wide.size() - expected.size());
}

TEST(KoDirectory, RefusesWhatIsNoDirectoryAndNothing)
{
    EXPECT_EQ(errorOf([] { return vanta_qnx_safe_opendir("/dev/null") != nullptr; }), ENOTDIR);
    EXPECT_EQ(errorOf([] { return vanta_qnx_safe_opendir(nullptr) != nullptr; }), EINVAL);
    EXPECT_EQ(errorOf([] { return vanta_qnx_safe_closedir(nullptr) == 0; }), EINVAL);
    DIR* const directory = vanta_qnx_safe_opendir("/");
    dirent entry{};
    dirent* found = &entry;
    dirent64 entry64{};
    dirent64* found64 = &entry64;
    EXPECT_EQ(vanta_qnx_safe_readdir_r(directory, nullptr, &found), EINVAL);
    EXPECT_EQ(vanta_qnx_safe_readdir_r(directory, &entry, nullptr), EINVAL);
    EXPECT_EQ(vanta_qnx_safe_readdir_r(nullptr, &entry, &found), EINVAL);
    EXPECT_EQ(found, nullptr);
    errno = EDOM;
    EXPECT_EQ(vanta_qnx_safe_readdir64_r(directory, nullptr, &found64), EDOM);
    EXPECT_EQ(vanta_qnx_safe_readdir64_r(directory, &entry64, nullptr), EDOM);
    EXPECT_EQ(found64, &entry64);
    EXPECT_EQ(vanta_qnx_safe_closedir(directory), 0);
}

} // namespace
