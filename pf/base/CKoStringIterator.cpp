#include "pf/base/CKoString.h"
#include "pf/base/KoUtf8.h"

namespace
{

void goForward(const char*& position, int steps)
{
    KoPrivate::stepForward(position, static_cast<unsigned int>(steps));
}

/// \param steps negative.
void goBack(const char*& position, int steps)
{
    // A zero byte at the start is taken for the end; one that is met on the way is the one before the text.
    if (*position == '\0')
    {
        KoPrivate::stepBack(position);
        ++steps;
    }
    for (; steps != 0; ++steps)
    {
        if (*position == '\0')
        {
            ++position;
            return;
        }
        KoPrivate::stepBack(position);
    }
}

} // namespace

void CKoString::const_iterator::incrementSteps(const char** position, int steps) const
{
    if (position == nullptr || *position == nullptr || steps == 0)
    {
        return;
    }
    if (steps > 0)
    {
        goForward(*position, steps);
    }
    else
    {
        goBack(*position, steps);
    }
}

/// Decodes what is not ASCII. A sequence that is not whole gives the bits that are there, a byte that leads
/// no sequence its own value; neither can arise from text that an encoder has written.
unsigned int CKoString::const_iterator::decode() const
{
    if (m_position == nullptr)
    {
        return 0U;
    }
    const unsigned int lead = static_cast<unsigned char>(*m_position);
    const unsigned int length = KoPrivate::sequenceLength(*m_position);
    if (length < 2U)
    {
        return lead;
    }
    unsigned int codePoint = lead & (0x7FU >> length);
    for (unsigned int i = 1; i < length; ++i)
    {
        const unsigned int next = static_cast<unsigned char>(m_position[i]);
        if (next < 0x80U)
        {
            break;
        }
        codePoint = codePoint << 6U | (next & 0x3FU);
    }
    return codePoint;
}

int operator-(const CKoString::const_iterator& a, const CKoString::const_iterator& b)
{
    const char* const to = a.address();
    const char* const from = b.address();
    if (to == from || to == nullptr || from == nullptr)
    {
        return 0;
    }
    // The byte that a way starts with counts as a step even where it is no character's first.
    return to > from ? static_cast<int>(1U + KoPrivate::countSteps(from + 1, to))
                     : -static_cast<int>(1U + KoPrivate::countSteps(to + 1, from));
}

unsigned int CKoString::operator[](unsigned int index) const
{
    const char* position = m_data->text();
    KoPrivate::stepForward(position, index);
    return *const_iterator(position);
}
