#include "pf/base/CKoString.h"
#include "pf/base/KoUtf8.h"

#include <algorithm>

CKoString CKoString::getLeft(unsigned int count) const
{
    if (count >= m_data->charCount)
    {
        return copyOf(c_str(), m_data->byteLength, m_data->charCount);
    }
    const char* last = c_str();
    const unsigned int characters = KoPrivate::stepForward(last, count);
    return copyOf(c_str(), offsetOf(const_iterator(last)), characters);
}

CKoString CKoString::getLeft(const const_iterator& position) const
{
    if (!contains(position))
    {
        return CKoString();
    }
    const unsigned int characters = KoPrivate::countSteps(c_str(), position.address());
    return copyOf(c_str(), offsetOf(position), std::min(characters, m_data->charCount));
}

CKoString CKoString::getRight(unsigned int count) const
{
    if (count >= m_data->charCount)
    {
        return copyOf(c_str(), m_data->byteLength, m_data->charCount);
    }
    const char* const last = end().address();
    const char* first = last;
    for (unsigned int i = 0; i != count && first != c_str(); ++i)
    {
        KoPrivate::stepBack(first, c_str());
    }
    return copyOf(first, static_cast<unsigned int>(last - first), count);
}

CKoString CKoString::getRight(const const_iterator& position) const
{
    if (!contains(position))
    {
        return CKoString();
    }
    const char* const last = end().address();
    const unsigned int characters = KoPrivate::countSteps(position.address(), last);
    return copyOf(position.address(), m_data->byteLength - offsetOf(position),
                  std::min(characters, m_data->charCount));
}

CKoString CKoString::getMid(const const_iterator& position, unsigned int count) const
{
    if (!contains(position))
    {
        return CKoString();
    }
    const char* last = position.address();
    const unsigned int characters = KoPrivate::stepForward(last, count);
    return copyOf(position.address(), static_cast<unsigned int>(last - position.address()),
                  std::min(characters, m_data->charCount));
}
