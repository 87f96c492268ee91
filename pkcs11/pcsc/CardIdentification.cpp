#include "pkcs11/pcsc/CardIdentification.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>

namespace PKCS11 {

const char PIV_AID[] = "A000000308000010000100";
const char IAS_APPLET_AID[] = "A000000077010800070000FE";
const char IAS_PKCS15_AID[] = "E828BD080FD2500000040301";
const char SAGEM_IAS_GENERIC_AID[] = "E828BD080FD25047656E65726963";

namespace {

constexpr char kUnknownCard[] = "unknown card";

/// The first match counts. ACOS cards show the serial series of their issue in the historical bytes.
constexpr ATRTableRow kATRTable[] = {
    {"4d346376", "Siemens", kCardOSCard},
    {"56346376", "Siemens", kCardOSCard},
    {"56343262", "Siemens", kCardOSCard},
    {"c901", "Atos", kCardOSCard},
    {"0031c06477e30300829000", "Oberthur", kActivIdentityCard},
    {"ae01030000", "Axalto", kActivIdentityCard},
    {"2905010201", "Axalto", kActivIdentityCard},
    {"8073002113574a544861314700", "G&D", kActivIdentityCard},
    {"455041000000000227507000000000", "ACOS", kEDUCard},
    {"45504100000000294890350000002b", "ACOS", kEDUCard},
    {"455041000000003169480600000000", "ACOS", kEDUCard},
    {"455041000000002948797500000017", "ACOS", kEDUCard},
    {"455041000000002116819800000000", "ACOS", kEDUCard},
    {"455041000000002156977900000000", "ACOS", kEDUCard},
    {"41434f000000000000000000000000", "ACOS", kEDUCard},
    {"454d56203033202006", "ACOS", kEDUCard},
    {"41434f000000000000000000000000", "ACOS", kEDUCard}, // twice, deliberately
    {"455041000000002001847700000000", "ACOS", kEDUCard},
    {"455041000000002116807500000000", "ACOS", kEDUCard},
    {"455041000000000000000000000000", "ACOS", kATrustCard},
    {"0031b9640000ecc1739401c00f9000", "Oberthur", kIASCard},
    {"0031c064b0f31000019000", "Oberthur", kIASCard},
    {"0031b8645023ecc173940180829000", "Sagem Orga", kIASCard},
    {"0031b8644070141073940180829000", "Gemalto", kIASCard},
    {"53462d3443432d3031", "SmartCafe Expert 5.0", kPIVCard},
    {"4A434F503231563232", "JCOP 21", kPIVCard},
    {"8073cc91cbf9a00000030800001000", "Oberthur ID One v7PIV", kPIVCard},
    {"80318065b0831111e583009000", "Gemalto TOP DL V2", kPIVCard},
    {"80318065b0831111ac83009000", "Gemalto TPC DM 72K", kPIVCard},
    {"0031c064b0f31000079000", "Oberthur ID One Dual 128 V5.5", kPIVCACCard},
};

bool startsWith(const Blob& whole, const Blob& part)
{
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

/// The identifiers (4F) that stand first in the application templates (61) of an EF.DIR, in their order. One
/// that breaks off at the end of the file is left out.
std::vector<Blob> applicationsIn(const Blob& dir)
{
    constexpr unsigned char kTemplate = 0x61;
    constexpr unsigned char kIdentifier = 0x4F;
    std::vector<Blob> identifiers;
    for (int i = 0; i + 3 < dir.size();) {
        if (dir.at(i) != kTemplate) {
            ++i;
            continue;
        }
        if (dir.at(i + 2) == kIdentifier && i + 4 + dir.at(i + 3) <= dir.size())
            identifiers.push_back(dir.slice(i + 4, dir.at(i + 3)));
        i += 2 + dir.at(i + 1);
    }
    return identifiers;
}

} // namespace

Blob getHistoricalBytes(const Blob& atr)
{
    if (atr.size() < 2)
        return {};
    const int count = atr.at(1) & 0x0F;
    int index = 1;
    // The high half of T0, then of each TDi, says which of TA, TB, TC and TD follow.
    int present = atr.at(1) >> 4;
    while (present != 0) {
        index += (present & 1) + (present >> 1 & 1) + (present >> 2 & 1);
        if ((present & 8) == 0)
            break;
        if (++index >= atr.size())
            return {};
        present = atr.at(index) >> 4;
    }
    return atr.slice(index + 1, count);
}

const ATRTableRow* findATRTableRow(const Blob& historicalBytes)
{
    if (historicalBytes.empty())
        return nullptr;
    const auto* const row =
        std::find_if(std::begin(kATRTable), std::end(kATRTable), [&](const ATRTableRow& r) {
            return startsWith(PKCS11_hex2blob(r.historicalBytes), historicalBytes);
        });
    return row != std::end(kATRTable) ? row : nullptr;
}

std::string PCSCSlot::GetOS(const Blob& atr, Blob& cardType)
{
    cardType = Blob(kPIVCard);
    const Blob historicalBytes = getHistoricalBytes(atr);
    if (historicalBytes.empty())
        return kUnknownCard;
    if (const ATRTableRow* row = findATRTableRow(historicalBytes)) {
        cardType = Blob(row->cardType);
        return row->os;
    }
    if (!ReadATRIniFile(ATR_LIST_FILE))
        return kUnknownCard;
    for (const ATR_OS_MODEL& entry : m_atrList) {
        if (startsWith(PKCS11_hex2blob(entry.atr.c_str()), atr)) {
            cardType = Blob(entry.cardType);
            return entry.os;
        }
    }
    return kUnknownCard;
}

bool PCSCSlot::ReadATRIniFile(const char* /*path*/)
{
    return true;
}

bool PCSCSlot::IsPIVToken()
{
    return isAccepted(Send(PKCS11_hex2blob(kSelectByName), PKCS11_hex2blob(PIV_AID)));
}

bool PCSCSlot::selectsPKCS15(const std::vector<Blob>& applications)
{
    try {
        for (const Blob& aid : applications)
            SelectAppl(aid);
        SelectEF_IAS(EF_TOKEN_INFO_FID);
        SelectEF_IAS(EF_ODF_FID);
        return true;
    } catch (const PKCS11Exception&) {
        return false;
    }
}

bool PCSCSlot::CheckIAS()
{
    const Blob applet = PKCS11_hex2blob(IAS_APPLET_AID);
    const Blob pkcs15 = PKCS11_hex2blob(IAS_PKCS15_AID);
    const Blob generic = PKCS11_hex2blob(SAGEM_IAS_GENERIC_AID);
    m_iasAid.clear(); // found on an earlier card, perhaps
    for (const std::vector<Blob>& applications : {std::vector<Blob>{applet, pkcs15}, {generic}, {pkcs15}}) {
        if (selectsPKCS15(applications)) {
            m_iasAid = applications.back();
            return true;
        }
    }
    m_iasAid = GetAIDofIAS();
    return !m_iasAid.empty();
}

Blob PCSCSlot::GetAIDofIAS()
{
    if (!m_iasAid.empty())
        return m_iasAid;

    ResetChannel();
    SelectEF_IAS(IAS_EF_DIR);
    const std::vector<Blob> applications = applicationsIn(ReadBinaryEF());
    const Blob pkcs15 = PKCS11_hex2blob(IAS_PKCS15_AID);
    const auto keepFirst = [&](auto matches) {
        const auto it = std::find_if(applications.begin(), applications.end(),
                                     [&](const Blob& aid) { return matches(aid) && selectsPKCS15({aid}); });
        if (it != applications.end())
            m_iasAid = *it;
        return it != applications.end();
    };
    if (keepFirst([&](const Blob& aid) { return aid == pkcs15; }) ||
        keepFirst([](const Blob& aid) { return !aid.empty(); }))
        return m_iasAid;
    throw PKCS11Exception(CKR_DEVICE_ERROR, "AID not found", "GetAIDofIAS");
}

} // namespace PKCS11
