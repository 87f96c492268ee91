#include "pkcs11/drivers/common/PKCS1.h"

#include <algorithm>

namespace PKCS11 {

Blob makePKCS1Block(unsigned char blockType, const Blob& data, int size, int minFiller)
{
    const int filler = std::max({0, minFiller, size - 3 - data.size()});
    Blob block;
    block.reserve(3 + filler + data.size());
    block.push_back(0x00);
    block.push_back(blockType);
    block.insert(block.end(), filler, 0xFF);
    block.push_back(0x00);
    block.append(data);
    return block;
}

Blob stripPKCS1Block(const Blob& block)
{
    if (block.empty())
        return {};
    const auto start = block.begin() + (block.front() == 0x00 ? 1 : 0);
    if (start == block.end())
        return {};
    const auto separator = std::find(start, block.end(), 0x00);
    return Blob(separator == block.end() ? start + 1 : separator + 1, block.end());
}

} // namespace PKCS11
