#include "pf/util/KoBase64.h"

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/AssertionCounter.h"

namespace
{

using Bytes = std::vector<unsigned char>;

const std::string ALPHABET = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c)
{
    const std::size_t place = c == '\0' ? std::string::npos : ALPHABET.find(c);
    return place == std::string::npos ? -1 : static_cast<int>(place);
}

/// The rules in their plainest form. \return the bytes that count, and all that were written.
std::pair<std::size_t, Bytes> decoded(const std::string& text, std::size_t room)
{
    Bytes out;
    std::size_t counting = 0;
    bool goesOn = true;
    for (std::size_t at = 0; goesOn && at < text.size() && counting < room;)
    {
        int sextets[4];
        unsigned int bits = 0;
        for (std::size_t i = 0; i < 4; ++i)
        {
            sextets[i] = at + i < text.size() ? sextet(text[at + i]) : -1;
            bits = bits << 6U | static_cast<unsigned int>(std::max(sextets[i], 0));
        }
        out.resize(std::min(room, counting + 3));
        for (std::size_t i = counting; i < out.size(); ++i)
        {
            out[i] = static_cast<unsigned char>(bits >> (16U - 8U * (i - counting)));
        }
        const std::size_t whole = sextets[1] < 0 || sextets[2] < 0 ? 1 : sextets[3] < 0 ? 2 : 3;
        goesOn = whole == 3;
        counting = room < counting + 3 ? room : counting + whole;
        for (at += 4; at < text.size() && (text[at] == '\r' || text[at] == '\n');)
        {
            ++at;
        }
    }
    return {counting, out};
}

TEST(KoBase64, encodesIntoAnyRoom)
{
    const unsigned char bytes[] = {0x41, 0x42, 0x43, 0xFB, 0xFF, 0xBF};
    const std::string whole[] = {"", "QQ==", "QUI=", "QUJD", "QUJD+w==", "QUJD+/8=", "QUJD+/+/"};
    for (unsigned int count = 0; count <= 6; ++count)
    {
        for (std::size_t room = 0; room <= 10; ++room)
        {
            std::string out(11, '#');
            KoBase64::encode(bytes, count, &out[0], static_cast<unsigned int>(room));
            const std::string expected = (whole[count] + std::string(1, '\0')).substr(0, room);
            EXPECT_EQ(out, expected + std::string(11 - expected.size(), '#')) << count << " in " << room;
        }
    }
    char out[2] = "#";
    const KoTest::AssertionCounter assertions(2);
    KoBase64::encode(nullptr, 0, out, 1);
    KoBase64::encode(bytes, 1, nullptr, 0);
    EXPECT_EQ(out[0], '#');
}

TEST(KoBase64, decodesPaddingForeignCharactersAndTextsCutShort)
{
    const std::pair<const char*, Bytes> cases[] = {{"", {}},
                                                   {"QUJD", {0x41, 0x42, 0x43}},
                                                   {"QUI=", {0x41, 0x42}},
                                                   {"QUJD\r\nQUJD", {0x41, 0x42, 0x43, 0x41, 0x42, 0x43}},
                                                   {"Q", {0x40}},
                                                   {"QUJDQU", {0x41, 0x42, 0x43, 0x41}},
                                                   {"QUJDQUJ", {0x41, 0x42, 0x43, 0x41, 0x42}},
                                                   {"\nUJDQUJD", {0x01, 0x42, 0x43, 0x41, 0x42, 0x43}},
                                                   {"QU\xC3\x84QUJD", {0x41}}};
    for (const auto& each : cases)
    {
        Bytes out(8, 0xEE);
        const std::string text = each.first;
        out.resize(KoBase64::decode(std::vector<char>(text.c_str(), text.c_str() + text.size() + 1).data(),
                                    out.data(), 8));
        EXPECT_EQ(out, each.second) << text;
    }
    unsigned char out[1] = {7};
    const KoTest::AssertionCounter assertions(4);
    EXPECT_EQ(KoBase64::decode(nullptr, out, 1), 0U);
    EXPECT_EQ(KoBase64::decode("QUJD", nullptr, 1), 0U);
    EXPECT_EQ(KoBase64::decode("QUJD", out, 0), 0U);
    EXPECT_EQ(KoBase64::calcDecodeLength(nullptr), 0U);
    EXPECT_EQ(out[0], 7);
    EXPECT_EQ(KoBase64::decode("", out, 1), 0U);
    EXPECT_EQ(out[0], 0);
}

TEST(KoBase64, agreesWithItsRulesForAnyTextAndRoom)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 20000; ++round)
    {
        std::string text;
        for (std::size_t length = random() % 40; text.size() < length;)
        {
            text += random() % 16 != 0 ? ALPHABET[random() % 64] : "=\r\n-\xFF"[random() % 5];
            text += text.size() % 4 == 0 && random() % 4 == 0 ? "\r\n" : "";
        }
        const std::size_t room = 1 + random() % 32;
        Bytes out(room + 1, 0xEE);
        const auto expected = decoded(text, room);
        ASSERT_EQ(KoBase64::decode(text.c_str(), out.data(), static_cast<unsigned int>(room)), expected.first)
            << text << " in " << room;
        ASSERT_TRUE(std::equal(expected.second.begin(), expected.second.end(), out.begin())) << text;
        ASSERT_EQ(out.back(), 0xEE);
    }
}

TEST(KoBase64, knowsItsAlphabetAndLengths)
{
    for (int c = -128; c < 128; ++c)
    {
        const int place = sextet(static_cast<char>(c));
        EXPECT_EQ(KoBase64::isbase64(static_cast<char>(c)), place >= 0);
        EXPECT_EQ(KoBase64::value(static_cast<char>(c)), std::max(place, 0));
    }
    EXPECT_EQ(KoBase64::b64str_table, ALPHABET);
    const std::pair<const char*, unsigned int> lengths[] = {{"", 0U},     {"=", 0U},     {"QQ==", 1U},
                                                            {"QUI=", 2U}, {"QUJD", 3U},  {"QUJDQ", 3U},
                                                            {"Q=U=", 2U}, {"QUJDQU", 4U}};
    for (const auto& each : lengths)
    {
        EXPECT_EQ(KoBase64::calcDecodeLength(each.first), each.second) << each.first;
    }
}

} // namespace
