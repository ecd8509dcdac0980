#include "WordTable.h"

#include <algorithm>
#include <cstring>

namespace
{

bool isWordCharacter(unsigned int character)
{
    const bool isDigit = character >= '0' && character <= '9';
    const bool isLetter = character >= 'a' && character <= 'z';
    return isDigit || isLetter || character == '\'' || character >= 0xA0;
}

/// Quotation marks around a word are no part of it.
CKoString withoutQuotes(CKoString word)
{
    while (!word.isEmpty() && word[0] == '\'')
    {
        word = word.getRight(word.length() - 1);
    }
    while (!word.isEmpty() && word[word.length() - 1] == '\'')
    {
        word.truncate(word.length() - 1);
    }
    return word;
}

bool isMoreFrequent(const WordTable::Entry& a, const WordTable::Entry& b)
{
    return a.second != b.second ? a.second > b.second : std::strcmp(a.first.c_str(), b.first.c_str()) < 0;
}

} // namespace

void WordTable::addText(const CKoString& text)
{
    CKoString::const_iterator wordStart = text.begin();
    unsigned int length = 0;
    for (CKoString::const_iterator position = text.begin(); *position != 0; ++position)
    {
        if (isWordCharacter(*position))
        {
            wordStart = length == 0 ? position : wordStart;
            ++length;
        }
        else if (length > 0)
        {
            addWord(withoutQuotes(text.getMid(wordStart, length)));
            length = 0;
        }
    }
    addWord(withoutQuotes(text.getMid(wordStart, length)));
}

void WordTable::addWord(const CKoString& word)
{
    if (word.isEmpty())
    {
        return;
    }
    ++m_total;
    const int index = m_counts.find(word);
    if (index < 0)
    {
        m_counts.insert(word, 1U);
        return;
    }
    ++m_counts.get(index)->second;
}

TKoVector<WordTable::Entry> WordTable::mostFrequent(std::size_t limit) const
{
    TKoVector<Entry> entries;
    entries.assign(m_counts.begin(), m_counts.end());
    const std::size_t kept = std::min(limit, entries.size());
    const auto middle = entries.begin() + static_cast<std::ptrdiff_t>(kept);
    std::partial_sort(entries.begin(), middle, entries.end(), isMoreFrequent);
    entries.erase(middle, entries.end());
    return entries;
}
