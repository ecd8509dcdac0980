#include "pf/base/CKoString.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "tests/base/StringTesting.h"

using namespace KoTest;

namespace
{

using Position = CKoString::const_iterator;

/// A text as a row of characters, edited the simple way.
using Characters = std::vector<std::string>;

std::string joined(const Characters& characters)
{
    std::string text;
    for (const std::string& character : characters)
    {
        text += character;
    }
    return text;
}

Characters split(const std::string& text)
{
    Characters characters;
    for (const char byte : text)
    {
        if ((static_cast<unsigned char>(byte) & 0xC0U) != 0x80U)
        {
            characters.emplace_back();
        }
        characters.back() += byte;
    }
    return characters;
}

struct Pair
{
    CKoString string;
    Characters model;
};

/// One random edit of a string and its model.
void edit(Pair& pair, const Pair& other, Random& random)
{
    const unsigned int index = random.below(static_cast<unsigned int>(pair.model.size()) + 1U);
    const unsigned int count = random.below(4);
    const Characters::iterator from = std::next(pair.model.begin(), static_cast<int>(index));
    const Characters::iterator to =
        std::next(from, std::min(static_cast<int>(count), static_cast<int>(pair.model.end() - from)));
    const Characters inserted = other.model;
    Position position = pair.string.begin();
    position += static_cast<int>(index);
    switch (random.below(9))
    {
    case 0:
        pair.string.append(other.string);
        pair.model.insert(pair.model.end(), inserted.begin(), inserted.end());
        break;
    case 1:
        pair.string.append(other.string.c_str());
        pair.model.insert(pair.model.end(), inserted.begin(), inserted.end());
        break;
    case 2:
        pair.string.insert(position, other.string);
        pair.model.insert(from, inserted.begin(), inserted.end());
        break;
    case 3:
        pair.string.remove(position, count);
        pair.model.erase(from, to);
        break;
    case 4:
        pair.string.replace(position, count, other.string);
        if (from != pair.model.end() || count == 0U)
        {
            const auto hole = pair.model.erase(from, to);
            pair.model.insert(hole, inserted.begin(), inserted.end());
        }
        break;
    case 5:
        pair.string.truncate(index);
        pair.model.resize(index);
        break;
    case 6:
        pair.string = pair.string.getMid(position, count);
        pair.model = Characters(from, to);
        break;
    case 7:
        pair.string = count == 0U ? other.string : other.string.getRight(index);
        pair.model = inserted;
        if (count != 0U && index < inserted.size())
        {
            pair.model.assign(std::prev(inserted.end(), static_cast<int>(index)), inserted.end());
        }
        break;
    default:
        pair.string.reserve(index * 3U);
        break;
    }
}

TEST(CKoStringModel, RandomEditsOfStringsThatShareBlocksFollowTheModel)
{
    Random random;
    SCOPED_TRACE(random.trace());
    std::vector<Pair> pairs(5);
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        Pair& pair = pairs[random.below(5)];
        edit(pair, pairs[random.below(5)], random);
        if (pair.model.size() > 60 || random.below(40) == 0)
        {
            const std::string text = random.text(10);
            pair = {CKoString(text.c_str()), split(text)};
        }
        for (const Pair& each : pairs)
        {
            ASSERT_EQ(textOf(each.string), joined(each.model)) << "turn " << turn;
            ASSERT_EQ(each.string.length(), each.model.size()) << "turn " << turn;
            ASSERT_LE(each.string.byteLength(), each.string.capacity());
            ASSERT_EQ(each.string.c_str()[each.string.byteLength()], '\0');
        }
    }
}

TEST(CKoStringModel, TextWithOddContinuationBytesStaysInsideItsBlockAndKeepsAPlausibleCount)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        // Exact blocks on the heap: a memory checker sees every step beyond them.
        CKoString string = make(random.bytes(24));
        const CKoString other = make(random.bytes(6));
        for (int step = 0; step < 6; ++step)
        {
            Position position = random.below(2) == 0 ? string.begin() : string.end();
            position += static_cast<int>(random.below(10)) - 5;
            Random choice(static_cast<unsigned int>(turn * 8 + step));
            // clang-format off
            switch (choice.below(10))
            {
            case 0: string.insert(position, other); break;
            case 1: string.remove(position, choice.below(4)); break;
            case 2: string.replace(position, choice.below(4), other); break;
            case 3: string.truncate(choice.below(8)); break;
            case 4: string.truncate(position); break;
            case 5: string = string.getLeft(choice.below(9)) + string.getRight(choice.below(9)); break;
            case 6: string = string.getMid(position, choice.below(9)); break;
            case 7: string = string.getRight(position); break;
            case 8: string.replaceAll(other, string.getLeft(1U)); break;
            default: string.append(other).trim(); break;
            }
            // clang-format on
            const unsigned int bytes = string.byteLength();
            ASSERT_LE(string.length(), bytes);
            ASSERT_EQ(string.length() == 0U, bytes == 0U);
            ASSERT_EQ(std::strlen(string.c_str()), bytes);
            unsigned int steps = 0;
            for (Position each = string.begin(); each != string.end(); ++each, ++steps)
            {
                ASSERT_LT(*each, 0x80000000U);
                ASSERT_LT(steps, bytes);
            }
        }
    }
}

} // namespace
