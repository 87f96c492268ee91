#include "tools/vcard/FileSystem.h"

#include <algorithm>
#include <stdexcept>

namespace vcard {

namespace {

constexpr unsigned short kMfId = 0x3F00;
constexpr size_t kMaxRecord = 254;

File& add(File& parent, File::Kind kind, unsigned short id)
{
    parent.children.push_back(std::make_unique<File>());
    File& file = *parent.children.back();
    file.kind = kind;
    file.id = id;
    file.parent = &parent;
    return file;
}

template <class Condition>
File* child(File& parent, Condition condition)
{
    const auto found = std::find_if(parent.children.begin(), parent.children.end(),
                                    [&condition](const auto& file) { return condition(*file); });
    return found == parent.children.end() ? nullptr : found->get();
}

File* childById(File& parent, unsigned short id)
{
    return child(parent, [id](const File& file) { return file.id == id; });
}

unsigned short identifier(const Bytes& data, size_t at)
{
    return static_cast<unsigned short>(data[at] << 8 | data[at + 1]);
}

File* walk(File& from, const Bytes& path)
{
    File* file = path.empty() || path.size() % 2 != 0 ? nullptr : &from;
    for (size_t at = 0; file != nullptr && at < path.size(); at += 2)
        file = childById(*file, identifier(path, at));
    return file;
}

/// DFs whose name begins with these bytes, in the order of the tree.
void collectNamed(File& from, const Bytes& beginning, std::vector<File*>& found)
{
    if (!from.name.empty() && beginning.size() <= from.name.size() &&
        std::equal(beginning.begin(), beginning.end(), from.name.begin())) {
        found.push_back(&from);
    }
    for (const auto& file : from.children)
        collectNamed(*file, beginning, found);
}

size_t sizeOf(const File& file)
{
    size_t size = file.content.size();
    for (const Bytes& record : file.records)
        size += record.size();
    return size;
}

/// File control parameters: size, file descriptor byte, identifier, DF name.
Bytes controlInformation(const File& file)
{
    if (!file.controlInformation.empty())
        return file.controlInformation;
    if (file.kind == File::Kind::DF) {
        return join({tlv(0x82, {0x38}), tlv(0x83, twoBytes(file.id)),
                     file.name.empty() ? Bytes{} : tlv(0x84, file.name)});
    }
    const Bytes descriptor = {static_cast<unsigned char>(file.kind == File::Kind::Records ? 0x04 : 0x01)};
    return join({tlv(0x80, twoBytes(static_cast<unsigned>(sizeOf(file)))), tlv(0x82, descriptor),
                 tlv(0x83, twoBytes(file.id))});
}

} // namespace

FileSystem::FileSystem(bool findsAbove) : m_findsAbove(findsAbove), m_mf(std::make_unique<File>())
{
    m_mf->id = kMfId;
    reset();
}

File& FileSystem::addDF(File& parent, unsigned short id, Bytes name)
{
    File& file = add(parent, File::Kind::DF, id);
    file.name = std::move(name);
    return file;
}

File& FileSystem::addEF(File& parent, unsigned short id, Bytes content)
{
    File& file = add(parent, File::Kind::Transparent, id);
    file.content = std::move(content);
    return file;
}

File& FileSystem::addRecordEF(File& parent, unsigned short id, std::vector<Bytes> records)
{
    for (const Bytes& record : records)
        if (record.size() > kMaxRecord)
            throw std::length_error("a record of more than 254 bytes");
    File& file = add(parent, File::Kind::Records, id);
    file.records = std::move(records);
    return file;
}

void FileSystem::reset()
{
    select(*m_mf);
}

void FileSystem::select(File& file)
{
    const bool isDF = file.kind == File::Kind::DF;
    m_currentDF = isDF ? &file : file.parent;
    m_currentEF = isDF ? nullptr : &file;
}

File* FileSystem::findById(unsigned short id)
{
    if (id == kMfId)
        return m_mf.get();
    if (File* file = childById(*m_currentDF, id); file != nullptr || m_currentDF->id == id)
        return file != nullptr ? file : m_currentDF;
    File* parent = m_currentDF->parent;
    if (parent == nullptr || parent->id == id)
        return parent;
    return childById(*parent, id);
}

File* FileSystem::findByName(const Bytes& name, unsigned occurrence)
{
    std::vector<File*> found;
    collectNamed(*m_mf, name, found);
    if (found.empty())
        return nullptr;
    const auto current = std::find(found.begin(), found.end(), m_currentDF);
    switch (occurrence) {
    case 0:
        return found.front();
    case 1:
        return found.back();
    case 2:
        return current == found.end() ? found.front() : current + 1 == found.end() ? nullptr : *(current + 1);
    default:
        return current == found.end() ? found.back() : current == found.begin() ? nullptr : *(current - 1);
    }
}

File* FileSystem::find(const Command& command)
{
    switch (command.p1) {
    case 0x00:
        return command.data.empty() ? m_mf.get() : findById(identifier(command.data, 0));
    case 0x01:
    case 0x02: {
        const bool wantsDF = command.p1 == 0x01;
        const unsigned short id = identifier(command.data, 0);
        File* above = wantsDF && m_findsAbove ? m_currentDF->parent : nullptr;
        while (above != nullptr && above->id != id)
            above = above->parent;
        File* below = child(*m_currentDF, [&](const File& file) {
            return file.id == id && (file.kind == File::Kind::DF) == wantsDF;
        });
        return below != nullptr ? below : above;
    }
    case 0x03:
        return m_currentDF->parent;
    case 0x04:
        return findByName(command.data, command.p2 & 0x03);
    case 0x08:
        return walk(*m_mf, command.data);
    default:
        return walk(*m_currentDF, command.data);
    }
}

Response FileSystem::selectCommand(const Command& command)
{
    const size_t length = command.data.size();
    const unsigned answer = command.p2 & 0x0C;
    const bool byName = command.p1 == 0x04;
    if ((command.p1 > 0x04 && command.p1 != 0x08 && command.p1 != 0x09) || (command.p2 & 0xF0) != 0 ||
        answer == 0x08 || (!byName && (command.p2 & 0x03) != 0)) {
        return sw::wrongP1P2;
    }
    const bool lengthFits = command.p1 == 0x00   ? length == 0 || length == 2
                            : command.p1 <= 0x02 ? length == 2
                            : command.p1 == 0x03 ? length == 0
                            : byName             ? length >= 1 && length <= 16
                                                 : length >= 2 && length % 2 == 0;
    if (!lengthFits)
        return sw::wrongLength;
    File* file = find(command);
    if (file == nullptr)
        return sw::fileNotFound;
    select(*file);
    return answer == 0x0C ? Response() : tlv(answer == 0x04 ? 0x62 : 0x6F, controlInformation(*file));
}

Response FileSystem::target(unsigned shortId, File::Kind kind, const File*& file)
{
    if (shortId != 0) {
        File* named = child(*m_currentDF, [shortId](const File& candidate) {
            return candidate.kind != File::Kind::DF && (candidate.id & 0x1FU) == shortId;
        });
        if (named == nullptr)
            return sw::fileNotFound;
        select(*named);
    }
    if (m_currentEF == nullptr)
        return sw::noCurrentEF;
    if (m_currentEF->kind != kind)
        return sw::wrongFileStructure;
    if (m_currentEF->readable && !m_currentEF->readable())
        return sw::securityStatusNotSatisfied;
    file = m_currentEF;
    return {};
}

Response FileSystem::cut(Bytes data, const Command& command)
{
    if (data.size() < command.le && !command.leIsMaximum)
        return {std::move(data), sw::endOfFile};
    data.resize(std::min(data.size(), command.le));
    return data;
}

Response FileSystem::readBinary(const Command& command)
{
    if (!command.hasLe || !command.data.empty())
        return sw::wrongLength;
    const bool byShortId = (command.p1 & 0x80) != 0;
    if (byShortId && ((command.p1 & 0x60) != 0 || (command.p1 & 0x1F) == 0))
        return sw::wrongP1P2;
    const File* file = nullptr;
    Response refusal = target(byShortId ? command.p1 & 0x1FU : 0, File::Kind::Transparent, file);
    if (file == nullptr)
        return refusal;
    const size_t offset = byShortId ? command.p2 : command.p1p2();
    const size_t size = file->content.size();
    if (offset > size || (offset == size && size != 0))
        return sw::wrongOffset;
    return cut({file->content.begin() + static_cast<std::ptrdiff_t>(offset), file->content.end()}, command);
}

Response FileSystem::readRecord(const Command& command)
{
    if (!command.hasLe || !command.data.empty())
        return sw::wrongLength;
    if ((command.p2 & 0x07) != 0x04 || command.p2 >> 3 == 0x1F)
        return sw::wrongP1P2;
    const File* file = nullptr;
    Response refusal = target(command.p2 >> 3, File::Kind::Records, file);
    if (file == nullptr)
        return refusal;
    if (command.p1 == 0 || command.p1 > file->records.size())
        return sw::recordNotFound;
    return cut(file->records[command.p1 - 1U], command);
}

} // namespace vcard
