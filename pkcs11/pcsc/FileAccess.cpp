// Transparent files and selection (ISO/IEC 7816-4) on the channel of a PCSCSlot.
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>
#include <winscard.h>

namespace PKCS11 {

namespace {

/// SELECT by DF name, which answers with FCP.
constexpr char kSelectByNameFCP[] = "00a40404";
constexpr char kSelectEF[] = "00a40204";
/// READ BINARY of a chunk of ReadBinary, and of all that one answer holds.
constexpr char kReadChunk[] = "00b00000f1";
constexpr char kReadAll[] = "00b0000000";

/// An answer of more bytes than this is a full chunk of ReadBinary, which asks for one more.
constexpr int kShortChunk = 240;
/// Bytes that ReadBinary reads at most.
constexpr int kReadBinarySize = 4096;
/// Length asked for when the card refuses the one before.
constexpr unsigned char kFallbackLe = 0x70;

void setOffset(Blob& command, int offset)
{
    putShort(command, kOffsetPosition, static_cast<unsigned short>(offset));
}

/// What cards answer to the READ BINARY after the last byte of a file, or to the one that reaches it.
bool endsFile(int sw)
{
    return sw == SW_SUCCESS || sw == SW_EOF_REACHED || sw == SW_OFFSET_OUTSIDE_EF ||
           sw == SW_INCORRECT_P1P2 || sw == SW_WRONG_LENGTH || isWrongLe(sw);
}

} // namespace

int PCSCSlot::ReadBinary(char* buf, int* len)
{
    *len = 0;
    Blob command = PKCS11_hex2blob(kReadChunk);
    int offset = 0;
    int sw = SW_SUCCESS;
    while (offset < kReadBinarySize) {
        setOffset(command, offset);
        Blob chunk;
        sw = SendCmd(command, chunk);
        if (sw == SW_OFFSET_OUTSIDE_EF && offset > 0) {
            sw = SW_SUCCESS; // the file ended with the last full chunk
            break;
        }
        if (sw == SW_SUCCESS || sw == SW_EOF_REACHED) {
            const int count = std::min(chunk.size(), kReadBinarySize - offset);
            std::copy_n(chunk.begin(), count, buf + offset);
            offset += count;
        }
        if (sw != SW_SUCCESS || chunk.size() <= kShortChunk)
            break;
    }
    *len = offset;
    return sw == SW_EOF_REACHED ? static_cast<int>(SW_SUCCESS) : sw;
}

int PCSCSlot::ReadBinary(Blob& out)
{
    Blob buffer(kReadBinarySize, 0);
    int length = 0;
    const int sw = ReadBinary(reinterpret_cast<char*>(buffer.data()), &length);
    out = buffer.slice(0, length);
    return sw;
}

Blob PCSCSlot::ReadBinaryEF(bool* isWhole)
{
    Blob command = PKCS11_hex2blob(kReadAll);
    Blob file;
    bool lengthChanged = false;
    int last = SW_SUCCESS;
    int round = 0;
    for (; file.size() < kOffsetLimit && round < kMostRounds; ++round) {
        setOffset(command, file.size());
        Blob chunk;
        const int sw = SendCmd(command, chunk);
        last = sw;
        file.append(chunk);
        const bool wrongLength = isWrongLe(sw) || sw == SW_WRONG_LENGTH;
        // A refusal of the length carries no data. The other length gets one try.
        if (chunk.empty() && (!wrongLength || lengthChanged))
            break;
        if (sw != SW_SUCCESS && !wrongLength)
            break;
        if (!wrongLength)
            command.back() = 0;
        else if (isWrongLe(sw) && m_protocol == SCARD_PROTOCOL_T0)
            command.back() = sw2(sw);
        else
            command.back() = kFallbackLe;
        lengthChanged = wrongLength;
    }
    if (isWhole != nullptr)
        *isWhole = endsFile(last) && round < kMostRounds;
    return file;
}

Blob PCSCSlot::SelectAppl(const Blob& aid)
{
    Blob answer;
    int sw = Send(PKCS11_hex2blob(kSelectByNameFCP), aid, answer);
    if (sw == SW_INCORRECT_P1P2)
        sw = Send(PKCS11_hex2blob(kSelectByName), aid, answer);
    if (sw != SW_SUCCESS)
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    return answer;
}

Blob PCSCSlot::SelectAppl(const char* aidHex)
{
    return SelectAppl(PKCS11_hex2blob(aidHex));
}

int PCSCSlot::trySelectEF(const Blob& fid)
{
    return Send(PKCS11_hex2blob(kSelectEF), fid);
}

void PCSCSlot::SelectEF_IAS(const Blob& fid)
{
    if (trySelectEF(fid) != SW_SUCCESS) // names the general method, deliberately
        throw PKCS11Exception(CKR_DEVICE_ERROR, "Select File", "PCSCSlot::SelectEF");
}

void PCSCSlot::SelectEF_IAS(unsigned short fid)
{
    SelectEF_IAS(PKCS11_short2blob(fid));
}

} // namespace PKCS11
