// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/compositemessage.h"

#include "util/krxassert.h"
#include "util/messagerecord.h"

#include <algorithm>
#include <utility>

namespace krx {

using util::MessageRecord;
using util::RecordHeader;

namespace {

constexpr char kCompositeMessagePlace[] = "server/compositemessage";
constexpr int kTypeLine = 111;
constexpr int kMemoryLine = 122;
constexpr int kNoRecordLine = 129;
constexpr int kCutOffLine = 355;

constexpr unsigned char kFlagMask = 0xA0;

unsigned char* dataAt(const SRMemoryPtr& memory, unsigned offset)
{
    return memory->data() + std::min(offset, memory->capacity());
}

unsigned lengthFrom(const SRMemoryPtr& memory, unsigned offset, unsigned length)
{
    return std::min(length, memory->capacity() - std::min(offset, memory->capacity()));
}

}  // namespace

SubMessage::SubMessage(CompositeMessage* owner, unsigned index, unsigned offset)
    : m_owner(owner), m_index(index), m_offset(offset)
{
}

int SubMessage::_use() const
{
    return m_owner->_use();
}

int SubMessage::_release() const
{
    return m_owner->_release();
}

CompositeMessage::ProxyMemory::ProxyMemory(const SRMemoryPtr& parent, unsigned char* data, unsigned length)
    : SRMemory(data, length, nullptr), m_parent(parent)
{
    setUsed(length);
}

CompositeMessage::PartialMemory::PartialMemory(const SRMemoryPtr& parent, unsigned offset, unsigned length)
    : SRMemory(dataAt(parent, offset), lengthFrom(parent, offset, length), nullptr), m_parent(parent)
{
    setUsed(capacity());
}

CompositeMessage::CompositeMessage(const SRMemoryPtr& body, unsigned length)
{
    setType(kMsgAggregate);
    if (!body) {
        util::assertFailed(kCompositeMessagePlace, kMemoryLine);
        return;
    }
    setMemory(body);
    const unsigned present = std::min(length, body->capacity());
    body->setUsed(present);
    initialize(body->data(), present);
    if (getMessageCount() == 0)
        util::assertFailed(kCompositeMessagePlace, kNoRecordLine);
}

CompositeMessage::CompositeMessage(const CompositeMessage& origin, RangePtr range, RangePtr parent)
    : m_whole(&origin.whole()), m_range(std::move(range)), m_parent(std::move(parent))
{
    const unsigned offset = offsetAt(m_range->first);
    const unsigned length = offsetAt(m_range->end) - offset;
    setType(origin.getType());
    setMemory(SRMemoryPtr(new PartialMemory(m_whole->getMemory(), offset, length)));
    setHeaderFields(length);
}

CompositeMessagePtr CompositeMessage::fromMessage(const MessagePtr& message)
{
    if (!message || message->getPlainType() != kMsgAggregate) {
        util::assertFailed(kCompositeMessagePlace, kTypeLine);
        return nullptr;
    }
    CompositeMessagePtr aggregate(new CompositeMessage(message->getMemory(), message->getMsgLen()));
    aggregate->setType(static_cast<unsigned char>((message->getType() & kFlagMask) | kMsgAggregate));
    return aggregate;
}

void CompositeMessage::setHeaderFields(unsigned length)
{
    setHeaderLength(length);
    setStreamId(0);
    if (const SubMessage* const first = getMessage(0))
        setTime(first->getTime());
}

void CompositeMessage::initialize(unsigned char* body, unsigned length)
{
    for (unsigned offset = 0; offset < length;) {
        const unsigned remaining = length - offset;
        MessageRecord record;
        readRecord(body + offset, remaining, record);
        // The back-pointer is not looked at, but a header alone is no record.
        if (!record.body || remaining == RecordHeader::kSize) {
            util::assertFailed(kCompositeMessagePlace, kCutOffLine);
            break;
        }
        auto message = std::make_unique<SubMessage>(this, static_cast<unsigned>(m_messages.size()), offset);
        HeaderBytes header{};
        std::copy_n(body + offset, header.size(), header.begin());
        message->setFlag(0, header[0] & kEncryptedFlag);
        header[0] = static_cast<unsigned char>(header[0] & ~kEncryptedFlag);
        message->setHeader(header);
        const unsigned innerLength = record.header.length;
        message->setMemory(
            SRMemoryPtr(new ProxyMemory(getMemory(), body + offset + RecordHeader::kSize, innerLength)));
        const int firstByte = innerLength != 0 ? record.body[0] : -1;
        m_kinds.push_back({message->getPlainType(), static_cast<short>(firstByte)});
        m_messages.push_back(std::move(message));
        // The last record may lack its back-pointer.
        offset += std::min(remaining, record.size());
    }
    m_bodyLength = length;
    m_range = std::make_shared<Range>(count(0, static_cast<unsigned>(m_messages.size())));
    setHeaderFields(length);
}

CompositeMessage::Range CompositeMessage::count(unsigned first, unsigned end) const
{
    Range range{first, end};
    for (unsigned i = first; i < end; ++i) {
        const RecordKind kind = whole().m_kinds[i];
        range.counter.addOne(static_cast<char>(kind.type));
        if (kind.firstByte < 0)
            continue;
        if (kind.type == kMsgAudio)
            ++range.audioFormats[static_cast<unsigned>(kind.firstByte) >> 4];
        else if (kind.type == kMsgVideo)
            ++range.videoCodecs[static_cast<unsigned>(kind.firstByte) & 0x0F];
    }
    return range;
}

/// Splits the counts of range at position. Only the shorter part is counted.
std::pair<CompositeMessage::RangePtr, CompositeMessage::RangePtr> CompositeMessage::cut(
    const Range& range, unsigned position) const
{
    const bool firstIsShorter = position - range.first < range.end - position;
    auto counted =
        std::make_shared<Range>(firstIsShorter ? count(range.first, position) : count(position, range.end));
    auto rest = std::make_shared<Range>(range);
    (firstIsShorter ? rest->first : rest->end) = position;
    rest->counter.subtract(counted->counter);
    for (std::size_t i = 0; i < rest->audioFormats.size(); ++i) {
        rest->audioFormats[i] -= counted->audioFormats[i];
        rest->videoCodecs[i] -= counted->videoCodecs[i];
    }
    if (!firstIsShorter)
        std::swap(counted, rest);
    return {std::move(counted), std::move(rest)};
}

unsigned short CompositeMessage::bitsOf(const CodecCounts& counts)
{
    unsigned bits = 0;
    for (std::size_t i = 0; i < counts.size(); ++i)
        bits |= counts[i] != 0 ? 1U << i : 0;
    return static_cast<unsigned short>(bits);
}

unsigned char CompositeMessage::getDataKinds() const
{
    return static_cast<unsigned char>((getCounter().getCount(kMsgData) != 0 ? kHasData : 0) |
                                      (getCounter().getCount(kMsgDataEx) != 0 ? kHasDataEx : 0));
}

unsigned CompositeMessage::offsetAt(unsigned position) const
{
    return position < whole().m_messages.size() ? recordAt(position).getOffset() : whole().m_bodyLength;
}

SubMessage* CompositeMessage::getMessage(unsigned i) const
{
    return i < getMessageCount() ? whole().m_messages[m_range->first + i].get() : nullptr;
}

unsigned CompositeMessage::getLastMsgTime() const
{
    return getMessageCount() == 0 ? 0xFFFFFFFF : recordAt(m_range->end - 1).getTime();
}

void CompositeMessage::splitByIndex(unsigned i, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    split(m_range->first + std::min(i, getMessageCount()), first, second);
}

void CompositeMessage::splitByTime(unsigned time, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    unsigned position = m_range->first;
    while (position < m_range->end && recordAt(position).getTime() < time)
        ++position;
    split(position, first, second);
}

/// position: of the whole.
void CompositeMessage::split(unsigned position, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    // The arguments may be the only holders of this aggregate.
    const CompositeMessagePtr self(this);
    if (position <= m_range->first) {
        first = nullptr;
        second = self;
    } else if (position >= m_range->end) {
        first = self;
        second = nullptr;
    } else {
        auto [before, after] = cut(*m_range, position);
        first = CompositeMessagePtr(new CompositeMessage(*this, std::move(before), m_range));
        second = CompositeMessagePtr(new CompositeMessage(*this, std::move(after), m_range));
    }
}

CompositeMessagePtr CompositeMessage::getPrev() const
{
    if (!m_parent || m_range->first == m_parent->first)
        return nullptr;
    return CompositeMessagePtr(new CompositeMessage(*this, cut(*m_parent, m_range->first).first, m_parent));
}

CompositeMessagePtr CompositeMessage::getNext() const
{
    if (!m_parent || m_range->end == m_parent->end)
        return nullptr;
    return CompositeMessagePtr(new CompositeMessage(*this, cut(*m_parent, m_range->end).second, m_parent));
}

}  // namespace krx
