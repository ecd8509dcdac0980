#pragma once

#include "pf/base/CKoString.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoPair.h"
#include "pf/containers/TKoVector.h"

/// Counts the words of texts. A word is a run of letters, digits, apostrophes between them, and characters
/// beyond ASCII.
class WordTable
{
public:
    using Entry = TKoPair<CKoString, unsigned int>;

    /// Adds the words of a text.
    void addText(const CKoString& text);

    /// The most frequent words, most frequent first, equally frequent ones in the order of their bytes.
    TKoVector<Entry> mostFrequent(std::size_t limit) const;

    std::size_t distinctWords() const { return m_counts.size(); }
    unsigned int totalWords() const { return m_total; }

private:
    void addWord(const CKoString& word);

    TKoMap<CKoString, unsigned int> m_counts;
    unsigned int m_total = 0;
};
