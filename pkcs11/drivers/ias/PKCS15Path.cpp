#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

namespace {

constexpr PKCS15Element kElements[] = {{0x04}, {0x02}, {0x80}};
constexpr PKCS15Layout kLayout = pkcs15Layout(kElements, PKCS15Layout::Others::End, nullptr, nullptr);

} // namespace

PKCS15Path::PKCS15Path() : PKCS15Sequence(kLayout) {}

void PKCS15Path::setPath(const Blob& path)
{
    m_present = true;
    setField(0, path);
}

void PKCS15Path::setIndex(const Blob& index)
{
    m_present = true;
    setField(1, index);
}

void PKCS15Path::setLength(const Blob& length)
{
    m_present = true;
    setField(2, length);
}

void PKCS15Path::read(const BERCoder& node)
{
    m_present = true;
    PKCS15Sequence::read(node);
}

int PKCS15PathSequence::find(const BERCoder& node) const
{
    if (m_place == Place::First)
        return node.getSize() > 0 ? 0 : -1;
    return findComponent(node, 0x30);
}

void PKCS15PathSequence::read(const BERCoder& node)
{
    m_path = PKCS15Path();
    PKCS15Sequence::read(node);
    const int place = find(node);
    if (place >= 0)
        m_path.take(node.component(place));
}

void PKCS15PathSequence::write(BERCoder& node) const
{
    const bool hasPath = find(node) >= 0;
    PKCS15Sequence::write(node);
    if (!m_path.isPresent())
        return;
    if (!hasPath)
        node.insertComponent(m_place == Place::First ? 0 : node.getSize());
    node[hasPath ? find(node) : m_place == Place::First ? 0 : node.getSize() - 1] = m_path.node();
}

} // namespace PKCS11
