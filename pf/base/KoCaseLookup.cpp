#include "pf/base/KoCaseLookup.h"

#include "pf/containers/KoAlgorithm.h"

#include <algorithm>

namespace KoPrivate
{

namespace
{

constexpr unsigned int ASCII_END = 0x80U;

template <class Simple>
bool findSimple(const Simple* entries, int count, unsigned int character, SFound& found)
{
    const auto isBefore = [](const Simple& entry, unsigned int value) { return entry.from < value; };
    const int index = KoAlgorithm::lowerBound(entries, count, character, isBefore);
    if (index == count || entries[index].from != character)
    {
        return false;
    }
    found = {entries[index].to, 1U, nullptr, nullptr};
    return true;
}

template <class Range>
bool findRange(const Range* entries, int count, unsigned int character, SFound& found)
{
    const auto isBefore = [](unsigned int value, const Range& entry) { return value < entry.start; };
    const int index = KoAlgorithm::upperBound(entries, count, character, isBefore) - 1;
    if (index < 0 || character - entries[index].start >= entries[index].length)
    {
        return false;
    }
    found = {entries[index].target + (character - entries[index].start), 1U, nullptr, nullptr};
    return true;
}

void takeUnits(const SKoCaseMappingTable::SSpecial16& entry, SFound& found)
{
    found = {0U, entry.count, entry.replacement, nullptr};
}

void takeUnits(const SKoCaseMappingTable::SSpecial32& entry, SFound& found)
{
    found = {0U, entry.count, nullptr, entry.replacement};
}

template <class Special>
bool findSpecial(const Special* entries, int count, unsigned int character, SFound& found)
{
    const auto isBefore = [](const Special& entry, unsigned int value) { return entry.from < value; };
    const int index = KoAlgorithm::lowerBound(entries, count, character, isBefore);
    if (index == count || entries[index].from != character)
    {
        return false;
    }
    takeUnits(entries[index], found);
    return true;
}

bool find(const SKoCaseMappingTable& table, unsigned int character, SFound& found)
{
    if (character <= 0xFFFFU)
    {
        return findSimple(table.simple16, table.simpleCount16, character, found) ||
               findRange(table.range16, table.rangeCount16, character, found) ||
               findSpecial(table.special16, table.specialCount16, character, found);
    }
    return findSimple(table.simple32, table.simpleCount32, character, found) ||
           findRange(table.range32, table.rangeCount32, character, found) ||
           findSpecial(table.special32, table.specialCount32, character, found);
}

} // namespace

SAsciiRule SAsciiRule::of(const SKoCaseMappingTable& table)
{
    const bool hasOthers = (table.simpleCount16 > 0 && table.simple16[0].from < ASCII_END) ||
                           (table.specialCount16 > 0 && table.special16[0].from < ASCII_END) ||
                           (table.rangeCount16 > 1 && table.range16[1].start < ASCII_END);
    if (hasOthers || table.rangeCount16 < 1 || table.range16[0].start >= ASCII_END)
    {
        return {!hasOthers, 0U, 0U, 0U};
    }
    const SKoCaseMappingTable::SRange16& range = table.range16[0];
    const bool isInside = range.start + range.length <= 0x80 && range.target + range.length <= 0x80;
    return {isInside, static_cast<unsigned char>(range.start), static_cast<unsigned char>(range.length),
            static_cast<unsigned char>(range.target - range.start)};
}

SStep CCaseLookup::look(const char* at)
{
    SStep step = {1U, at, 1U, 1U};
    while (isContinuation(at[step.span]))
    {
        ++step.span;
    }
    step.byteLength = step.span;
    SFound found = {0U, 0U, nullptr, nullptr};
    if (find(m_table, *CKoString::const_iterator(at), found))
    {
        encode(found);
        step.bytes = m_work.c_str();
        step.byteLength = m_work.byteLength();
        step.charCount = m_work.length();
    }
    remember(at, step);
    return step;
}

void CCaseLookup::encode(const SFound& found)
{
    if (found.units16 != nullptr)
    {
        m_work.fromUCS2Sequence(found.units16, found.count);
    }
    else if (found.units32 != nullptr)
    {
        m_work.fromUCS4Sequence(found.units32, found.count);
    }
    else
    {
        m_work.fromUCS4Sequence(&found.single, std::min(found.count, 1U));
    }
}

void CCaseLookup::remember(const char* at, const SStep& step)
{
    const bool isWhole = (step.span == 2U && isTwoByteLead(*at)) || (step.span == 3U && isThreeByteLead(*at));
    if (isWhole && step.byteLength == step.span)
    {
        const unsigned int to = keyOf(step.bytes, step.span) | (step.charCount - 1U) << 24U;
        m_entries[indexOf(at[step.span - 2U], at[step.span - 1U])] = {keyOf(at, step.span), to};
    }
}

} // namespace KoPrivate
