// The APDU transport of PCSCSlot. Commands and answers can hold PINs and keys: they are never logged, and the
// buffers of this file are wiped.
#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/pcsc/SCardCall.h"
#include "pkcs11/token/Framing.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>
#include <array>
#include <winscard.h>

namespace PKCS11 {

namespace {

constexpr char kWhere[] = "PCSCSlot::SendCmdIntern";
constexpr char kGetResponse[] = "00c0000000";
/// Bytes offered for one answer.
constexpr DWORD kReceiveSize = 640;
/// Bytes of an answer that a card may spread over GET RESPONSE commands.
constexpr int kChainLimit = 0x10000;
/// Invalid parameter in the words of the operating system; some reader drivers pass it through.
constexpr long kInvalidParameter = 0x57;
/// Reader drivers that know no extended APDUs fail with this code.
constexpr long kDriverRefused = 1;

struct WipedBuffer {
    WipedBuffer() = default;
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    ~WipedBuffer() { cleanse(bytes.data(), bytes.size()); }

    std::array<char, kReceiveSize> bytes;
};

struct Answer {
    WipedBuffer buffer;
    DWORD length = 0;
};

bool isKnownProtocol(DWORD protocol)
{
    return protocol == SCARD_PROTOCOL_T0 || protocol == SCARD_PROTOCOL_T1;
}

/// VERIFY, CHANGE REFERENCE DATA, RESET RETRY COUNTER. They have no Le: the last byte is the PIN's.
bool carriesPin(const char* cmd, int cmdLen)
{
    return cmdLen > 1 && (cmd[1] == 0x20 || cmd[1] == 0x24 || cmd[1] == 0x2C);
}

/// One exchange under a known protocol. T=0 knows no Le after data: a reader that refuses it gets the
/// command without.
long transmit(SCARDHANDLE card, DWORD protocol, const char* cmd, int cmdLen, Answer& answer)
{
    const SCARD_IO_REQUEST* const pci = protocol == SCARD_PROTOCOL_T0 ? SCARD_PCI_T0 : SCARD_PCI_T1;
    const auto send = [&](int length) {
        return SCardTransmit(card, pci, reinterpret_cast<const BYTE*>(cmd), static_cast<DWORD>(length),
                             nullptr, reinterpret_cast<BYTE*>(answer.buffer.bytes.data()), &answer.length);
    };
    answer.length = kReceiveSize;
    const long result = send(cmdLen);
    const bool refused = result == kInvalidParameter || result == SCARD_E_INVALID_PARAMETER;
    if (protocol != SCARD_PROTOCOL_T0 || !refused || cmdLen < 1 || carriesPin(cmd, cmdLen))
        return result;
    // The room stays as the first call left it, unless PC/SC set it to nothing or to more than there is.
    if (answer.length < 2 || answer.length > kReceiveSize)
        answer.length = kReceiveSize;
    return send(cmdLen - 1);
}

bool wantsReset(long result)
{
    return result == SCARD_W_RESET_CARD || result == SCARD_W_REMOVED_CARD ||
           result == SCARD_W_UNRESPONSIVE_CARD;
}

const char* chars(const Blob& bytes)
{
    return reinterpret_cast<const char*>(bytes.data());
}

/// Puts into `resp` what the exchange writes, and returns its status word.
template <class Exchange>
int received(Blob& resp, Exchange exchange)
{
    WipedBuffer answer;
    int length = 0;
    const int sw = exchange(answer.bytes.data(), &length);
    resp = Blob(answer.bytes.data(), answer.bytes.data() + length);
    return sw;
}

} // namespace

int PCSCSlot::SendCmdIntern(const char* cmd, int cmdLen, char* resp, int* respLen)
{
    if (!isConnected())
        throw PKCS11Exception(CKR_GENERAL_ERROR, "card not connected", kWhere);
    if (!isKnownProtocol(m_protocol))
        throw PKCS11Exception(CKR_GENERAL_ERROR, "unknown protocol", kWhere);

    enter();
    resetIfOwed();
    const bool hasPin = carriesPin(cmd, cmdLen);
    Answer answer;
    long result = SCARD_W_REMOVED_CARD;
    if (!m_cardExchanged || !hasPin)
        result = transmit(m_card, m_protocol, cmd, cmdLen, answer);
    if (result != SCARD_S_SUCCESS) {
        Logger::Log(Logger::kTrace, "Send PCSC Command error:");
        traceCode(result);
    }
    if (wantsReset(result) || Edition::current().wantsRejoin(result)) {
        recover(result);
        if (isKnownProtocol(m_protocol) && !(m_cardExchanged && hasPin))
            result = transmit(m_card, m_protocol, cmd, cmdLen, answer);
    }

    const DWORD length = answer.length;
    if (result != SCARD_S_SUCCESS || length < 2 || length > kReceiveSize) {
        Logger::Log(Logger::kTrace, "PCSC driver failed:");
        traceCode(result);
        if (result == kDriverRefused)
            Logger::Log(Logger::kTrace, "maybe the extended APDU is not supported.");
        throw PKCS11Exception(CKR_GENERAL_ERROR, "PCSC driver failed", kWhere);
    }
    const char* const bytes = answer.buffer.bytes.data();
    *respLen = static_cast<int>(length) - 2;
    std::copy_n(bytes, *respLen, resp);
    const auto at = [bytes](DWORD i) { return static_cast<unsigned char>(bytes[i]); };
    return at(length - 2) << 8 | at(length - 1);
}

int PCSCSlot::SendCmdIntern(const Blob& cmd, Blob& resp)
{
    return received(resp, [&](char* answer, int* length) {
        return SendCmdIntern(chars(cmd), cmd.size(), answer, length);
    });
}

void PCSCSlot::enter()
{
    if (Edition::current().enterCard(*this))
        ++m_visits;
}

void PCSCSlot::recover(long result)
{
    if (Edition::current().wantsRejoin(result)) {
        ++m_disturbances;
        RejoinChannel(); // where it fails, so does the command again
        return;
    }
    if (result == SCARD_W_REMOVED_CARD)
        noteExchange();
    ++m_disturbances;
    ResetChannel();
    confirmCard();
}

int PCSCSlot::fetchAnswer(unsigned char le, char* resp, int* respLen)
{
    Blob command = PKCS11_hex2blob(kGetResponse);
    command.back() = le;
    return SendCmdIntern(chars(command), command.size(), resp, respLen);
}

int PCSCSlot::SendCmd(const char* cmd, int cmdLen, char* resp, int* respLen)
{
    int sw = SendCmdIntern(cmd, cmdLen, resp, respLen);
    if (isWrongLe(sw) && !carriesPin(cmd, cmdLen)) {
        Blob command(cmd, cmd + cmdLen);
        if (cmdLen <= 4)
            command.push_back(sw2(sw));
        else
            command.back() = sw2(sw);
        sw = SendCmdIntern(chars(command), command.size(), resp, respLen);
    }
    if (hasMoreData(sw) && *respLen == 0)
        sw = fetchAnswer(sw2(sw), resp, respLen);
    return sw;
}

int PCSCSlot::SendCmd(const std::string& hex, char* resp, int* respLen)
{
    const Blob command = PKCS11_hex2blob(hex.c_str()).slice(0, static_cast<int>(hex.size() / 2));
    return SendCmd(chars(command), command.size(), resp, respLen);
}

int PCSCSlot::SendCmd(const Blob& cmd, Blob& resp)
{
    return received(
        resp, [&](char* answer, int* length) { return SendCmd(chars(cmd), cmd.size(), answer, length); });
}

int PCSCSlot::SendCmd(const Blob& cmd)
{
    Blob discarded;
    return SendCmd(cmd, discarded);
}

int PCSCSlot::collect(int sw, Blob& data)
{
    for (int round = 0; hasMoreData(sw) && data.size() < kChainLimit && round < kMostRounds; ++round) {
        Blob more;
        sw = received(more, [&](char* answer, int* length) { return fetchAnswer(sw2(sw), answer, length); });
        if (more.empty())
            break;
        data.append(more);
    }
    return sw;
}

int PCSCSlot::SendCmdChained(const Blob& cmd, Blob& resp)
{
    return collect(SendCmd(cmd, resp), resp);
}

int PCSCSlot::Send(const Blob& header, const Blob& data, unsigned char le, Blob& resp)
{
    Blob command = GetShortAPDU(header, data);
    command.push_back(le);
    return SendCmd(command, resp);
}

int PCSCSlot::Send(const Blob& header, const Blob& data, Blob& resp)
{
    return SendCmd(GetShortAPDU(header, data), resp);
}

int PCSCSlot::Send(const Blob& header, const Blob& data)
{
    return SendCmd(GetShortAPDU(header, data));
}

Blob PCSCSlot::SendCard(const Blob& header, const Blob& data, int* status)
{
    Blob result;
    // Without the rule for a wrong Le: the command has none.
    const int last = collect(SendCmdIntern(GetShortAPDU(header, data), result), result);
    if (status != nullptr)
        *status = last;
    return result;
}

} // namespace PKCS11
