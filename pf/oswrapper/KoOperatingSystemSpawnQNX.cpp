#include "pf/oswrapper/KoOperatingSystem.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/platform/KoPlatformProcess.h"

#include <alloca.h>
#include <cstddef>
#include <cstring>

namespace
{

constexpr const char* SOURCE = "KoOperatingSystemSpawnQNX";
constexpr char BLANK = ' ';
constexpr int MAX_WORDS = 14;
constexpr std::size_t STACK_RESERVE = 128U;
constexpr char DIRECTORY[] = "./";

/// Size of a stack copy of that many characters and the terminating zero.
std::size_t stackSize(std::size_t length)
{
    return (length + 1U + 7U) & ~std::size_t{7U};
}

bool fitsIntoStack(std::size_t size)
{
    return KoPlatform::stackAvailable() > size + STACK_RESERVE;
}

char* skipBlanks(char* text)
{
    while (*text == BLANK)
    {
        ++text;
    }
    return text;
}

/// Cuts the text into words in place. Each run of blanks ends one word, so that one at the end is followed by
/// an empty word. \return the number of words written, at most MAX_WORDS.
int splitWords(char* text, char** words)
{
    int count = 0;
    char* word = skipBlanks(text);
    while (word != nullptr && count < MAX_WORDS)
    {
        words[count++] = word;
        char* end = std::strchr(word, BLANK);
        if (end == nullptr)
        {
            break;
        }
        word = skipBlanks(end);
        *end = '\0';
    }
    return count;
}

int startInWorkingDirectory(const char* program, char* const* arguments)
{
    const std::size_t length = std::strlen(program);
    const std::size_t size = stackSize(sizeof(DIRECTORY) - 1U + length);
    if (!fitsIntoStack(size))
    {
        return -1;
    }
    char* path = static_cast<char*>(alloca(size));
    std::memcpy(path, DIRECTORY, sizeof(DIRECTORY) - 1U);
    std::memcpy(path + sizeof(DIRECTORY) - 1U, program, length + 1U);
    return KoPlatform::spawnvp(KoPlatform::SPAWN_NO_WAIT, path, arguments);
}

} // namespace

namespace KoOperatingSystem
{

int spawnProcess(const char* program, const char* arguments)
{
    if (program == nullptr)
    {
        return -1;
    }
    char* vector[1 + MAX_WORDS + 1];
    // The kernel's interface takes writable texts but does not write to them.
    vector[0] = const_cast<char*>(program);
    int count = 1;
    if (arguments != nullptr && *arguments != '\0')
    {
        const std::size_t length = std::strlen(arguments);
        const std::size_t size = stackSize(length);
        if (!fitsIntoStack(size))
        {
            doCheapAssert(__LINE__, SOURCE);
            return -1;
        }
        char* copy = static_cast<char*>(alloca(size));
        std::memcpy(copy, arguments, length + 1U);
        count += splitWords(copy, vector + 1);
    }
    vector[count] = nullptr;
    return startInWorkingDirectory(program, vector);
}

} // namespace KoOperatingSystem
