#include "tools/vcard/PivCard.h"

#include <gtest/gtest.h>

namespace {

using namespace vcard;

TEST(PivCard, AnswersAsItsProtocolDoesAndKeepsItsKeysBehindThePin)
{
    PivOptions options;
    options.slots = {{0x9C, 1024}, {0x9E, 0, "P-384"}};
    PivCard card(options);
    options.manners.t0 = true;
    PivCard t0(options);
    const std::string challenge = "0087069C887C8185820081818001" + std::string(254, '0');
    const std::string hash = "367C3482008130" + toHex(Bytes(48, 1)) + "00";
    const struct {
        PivCard& card;
        std::string command, answer;                           ///< or its last bytes
    } steps[] = {{card, "0020008008313233343536FFFF", "6D00"}, // not selected
                 {card, "00A4040005A000000308", "612D"},
                 {card, "00CB3FFF065C035FC101", "6700"},
                 {card, "10200080023132", "9000"},
                 {card, "00240080023132", "6883"}, // another command in the chain
                 {card, challenge, "6982"},
                 {card, "0020008008313233343536FFFF", "9000"},
                 {card, challenge, "6186"},
                 {card, challenge, "6982"}, // 9C wants the PIN each time
                 {card, "002000800831323334FFFFFFFF", "6A80"},
                 {card, "0020008008313233343537FFFF", "63C2"},
                 {card, "0087119E" + hash, "6A86"}, // the algorithm of another key
                 {card, "0087149E087C0682008102AABB00", "6A80"},
                 {card, "0087149E" + hash, "9000"},
                 {card, "00A4040005A00000030800", "9000"}, // behind the data
                 {t0, "00A4040005A00000030800", "612D"},
                 {t0, "00C00000FF", "6C2D"},
                 {t0, "00C0000010", "611D"},
                 {t0, "00C000001D", "9000"},
                 {t0, "00C000001D", "6985"}};
    for (const auto& step : steps) {
        const std::string answer = toHex(step.card.transmit(fromHex(step.command)));
        EXPECT_EQ(answer.substr(answer.size() - 4), step.answer) << step.command;
    }
    options.slots = {{0x9E, 0, "P-521"}};
    EXPECT_THROW(PivCard{options}, std::invalid_argument);
}

} // namespace
