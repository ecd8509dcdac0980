// wordcount [FILE...]: counts the words of text files and prints the most frequent ones; then breaks a
// precondition of the library on purpose, to show that it is reported and that the process goes on.
//
// Without arguments the licence texts of the system are counted. A file that cannot be read, or not to its
// end, is named on standard error and the others are still counted. Exit status: 0 = every file was counted,
// 2 = at least one was not, or there was none.

#include <cstdio>
#include <string>
#include <vector>

#include "TextFile.h"
#include "WordTable.h"

namespace
{

const char* const DEFAULT_DIRECTORY = "/usr/share/common-licenses";
constexpr std::size_t TABLE_ROWS = 20;
constexpr unsigned int MAX_COLUMN = 30; ///< characters of a word that the table shows
constexpr int SOME_FILE_FAILED = 2;

unsigned int asUnsigned(std::size_t count)
{
    return static_cast<unsigned int>(count);
}

/// Counts the files. \return how many of them were read to their end.
std::size_t countFiles(const std::vector<std::string>& paths, WordTable& words)
{
    std::size_t complete = 0;
    for (const std::string& path : paths)
    {
        const TextFile file(path);
        words.addText(file.text());
        if (file.problem().empty())
        {
            ++complete;
            continue;
        }
        std::fprintf(stderr, "wordcount: %s: %s\n", path.c_str(), file.problem().c_str());
    }
    return complete;
}

void printTable(const TKoVector<WordTable::Entry>& entries)
{
    std::printf("rank  word                              count\n");
    std::printf("----  ------------------------------  -------\n");
    unsigned int rank = 0;
    for (const WordTable::Entry& entry : entries)
    {
        const CKoString word = entry.first.getLeft(MAX_COLUMN);
        const int padding = static_cast<int>(MAX_COLUMN - word.length());
        std::printf("%4u  %s%*s  %7u\n", ++rank, word.c_str(), padding, "", entry.second);
    }
}

TKoVector<CKoString> wordsOf(const TKoVector<WordTable::Entry>& entries)
{
    TKoVector<CKoString> words;
    for (const WordTable::Entry& entry : entries)
    {
        words.push_back(entry.first);
    }
    return words;
}

/// Inserts beyond the end: the library reports it and leaves the vector as it was.
bool insertOutOfRange(TKoVector<CKoString> words)
{
    const TKoVector<CKoString> before = words;
    const int index = static_cast<int>(words.size()) + 1;
    std::printf("\ninserting at index %d of a vector of %u words\n", index, asUnsigned(words.size()));
    std::fflush(stdout);
    words.insert(index, CKoString("beyond"));
    const bool isUnchanged = words == before;
    std::printf("the vector %s: %u words\n", isUnchanged ? "is unchanged" : "has CHANGED",
                asUnsigned(words.size()));
    return isUnchanged;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> paths(argv + 1, argv + argc);
    if (argc < 2)
    {
        paths = regularFilesIn(DEFAULT_DIRECTORY);
    }
    WordTable words;
    const std::size_t complete = countFiles(paths, words);
    if (paths.empty())
    {
        std::fprintf(stderr, "wordcount: no files in %s\n", DEFAULT_DIRECTORY);
    }

    const TKoVector<WordTable::Entry> entries = words.mostFrequent(TABLE_ROWS);
    std::printf("%u words, %u different ones; %u of %u files read to their end\n\n", words.totalWords(),
                asUnsigned(words.distinctWords()), asUnsigned(complete), asUnsigned(paths.size()));
    printTable(entries);

    const bool isUnchanged = insertOutOfRange(wordsOf(entries));
    std::printf("the process goes on\n");
    return complete == paths.size() && !paths.empty() && isUnchanged ? 0 : SOME_FILE_FAILED;
}
