#include "tools/vcard/PivCard.h"

#include <gtest/gtest.h>

namespace {

using namespace vcard;

std::string ask(PivCard& card, const std::string& command)
{
    return toHex(card.transmit(fromHex(command)));
}

TEST(PivCard, AnswersAsItsProtocolDoes)
{
    PivOptions options;
    options.slots = {{0x9E, 0}};
    PivCard t1(options);
    options.manners.t0 = true;
    PivCard t0(options);
    EXPECT_EQ(ask(t1, "00A4040005A00000030800").size(), 2U * (45 + 2)); // the data at once
    EXPECT_EQ(ask(t0, "00A4040005A00000030800"), "612D");               // or when asked for
    EXPECT_EQ(ask(t0, "00C00000FF"), "6C2D");
    EXPECT_EQ(ask(t0, "00C0000010").substr(32), "611D");
    EXPECT_EQ(ask(t0, "00C000001D").substr(58), "9000");
    EXPECT_EQ(ask(t0, "00C000001D"), "6985");
    EXPECT_EQ(ask(t1, "00CB3FFF065C035FC101"), "6700");
    EXPECT_EQ(ask(t1, "10200080023132"), "9000");
    EXPECT_EQ(ask(t1, "00240080023132"), "6883"); // another command in the chain
}

TEST(PivCard, KeepsItsKeysBehindThePin)
{
    PivOptions options;
    options.slots = {{0x9C, 1024}};
    PivCard card(options);
    const std::string challenge = "0087069C887C8185820081818001" + std::string(254, '0');
    EXPECT_EQ(ask(card, "0020008008313233343536FFFF"), "6D00"); // not selected
    EXPECT_EQ(ask(card, "00A4040005A000000308"), "612D");
    EXPECT_EQ(ask(card, challenge), "6982");
    EXPECT_EQ(ask(card, "0020008008313233343536FFFF"), "9000");
    EXPECT_EQ(ask(card, challenge), "6186");
    EXPECT_EQ(ask(card, challenge), "6982"); // 9C wants the PIN each time
    EXPECT_EQ(ask(card, "002000800831323334FFFFFFFF"), "6A80");
    EXPECT_EQ(ask(card, "0020008008313233343537FFFF"), "63C2");
}

TEST(PivCard, ComputesWithTheAlgorithmOfTheKeyAlone)
{
    PivOptions options;
    options.slots = {{0x9E, 0, "P-384"}};
    PivCard card(options);
    ask(card, "00A4040005A000000308");
    const auto command = [](const std::string& algorithm, const Bytes& challenge) {
        const Bytes data = tlv(0x7C, join({tlv(0x82, {}), tlv(0x81, challenge)}));
        return "0087" + algorithm + "9E" + toHex({static_cast<unsigned char>(data.size())}) + toHex(data) +
               "00";
    };
    EXPECT_EQ(ask(card, command("14", Bytes(48, 1))).substr(0, 2), "7C");
    EXPECT_EQ(ask(card, command("11", Bytes(48, 1))), "6A86");
    EXPECT_EQ(ask(card, command("14", Bytes(32, 1))), "6A80");
    options.slots = {{0x9E, 0, "P-521"}};
    EXPECT_THROW(PivCard{options}, std::invalid_argument);
}

} // namespace
