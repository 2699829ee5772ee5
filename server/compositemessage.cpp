// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/compositemessage.h"

#include "util/krxassert.h"

#include <algorithm>
#include <utility>

namespace krx {

namespace {

constexpr char kSourceFile[] = "server/compositemessage";
constexpr int kTypeLine = 111;
constexpr int kMemoryLine = 122;
constexpr int kNoRecordLine = 129;
constexpr int kCutOffLine = 355;

constexpr unsigned char kFlagMask = 0xA0;
constexpr unsigned kBackPointerBytes = 4;
constexpr unsigned kMinRecord = SRMessageHeader::kSize + 1;

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
        util::assertFailed(kSourceFile, kMemoryLine);
        return;
    }
    setMemory(body);
    const unsigned present = std::min(length, body->capacity());
    body->setUsed(present);
    initialize(body->data(), present);
    if (getMessageCount() == 0)
        util::assertFailed(kSourceFile, kNoRecordLine);
}

CompositeMessage::CompositeMessage(CompositeMessage& parent, unsigned first, unsigned end, unsigned offset,
                                   unsigned length)
    : m_parent(&parent), m_list(parent.m_list), m_first(first), m_end(end)
{
    setType(parent.getType());
    setMemory(SRMemoryPtr(new PartialMemory(parent.getMemory(), offset, length)));
    setHeaderFields(length);
    initPerMessageInfo();
}

CompositeMessagePtr CompositeMessage::fromMessage(const MessagePtr& message)
{
    if (!message || message->getPlainType() != kMsgAggregate) {
        util::assertFailed(kSourceFile, kTypeLine);
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
        HeaderBytes header{};
        if (remaining >= kMinRecord)
            std::copy_n(body + offset, header.size(), header.begin());
        const unsigned innerLength = SRMessageHeader::parse(header.data()).length;
        if (remaining < kMinRecord || innerLength > remaining - SRMessageHeader::kSize) {
            util::assertFailed(kSourceFile, kCutOffLine);
            break;
        }
        auto message =
            std::make_unique<SubMessage>(this, static_cast<unsigned>(m_ownMessages.size()), offset);
        message->setFlag(0, header[0] & kEncryptedFlag);
        header[0] = static_cast<unsigned char>(header[0] & ~kEncryptedFlag);
        message->setHeader(header);
        message->setMemory(
            SRMemoryPtr(new ProxyMemory(getMemory(), body + offset + SRMessageHeader::kSize, innerLength)));
        m_ownMessages.push_back(std::move(message));
        // The last record may lack its back-pointer.
        offset += std::min(remaining, SRMessageHeader::kSize + innerLength + kBackPointerBytes);
    }
    m_end = static_cast<unsigned>(m_ownMessages.size());
    setHeaderFields(length);
    initPerMessageInfo();
}

void CompositeMessage::initPerMessageInfo()
{
    for (unsigned i = m_first; i < m_end; ++i) {
        const SubMessage& message = *(*m_list)[i];
        const unsigned char type = message.getPlainType();
        m_counter.addOne(static_cast<char>(type));
        const bool hasBody = message.getBodyLength() > 0;
        const unsigned first = hasBody ? message.getBody()[0] : 0;
        if (type == kMsgAudio && hasBody)
            m_audioFormats = static_cast<unsigned short>(m_audioFormats | 1U << (first >> 4));
        else if (type == kMsgVideo && hasBody)
            m_videoCodecs = static_cast<unsigned short>(m_videoCodecs | 1U << (first & 0x0F));
        else if (type == kMsgData)
            m_dataKinds |= kHasData;
        else if (type == kMsgDataEx)
            m_dataKinds |= kHasDataEx;
    }
}

SubMessage* CompositeMessage::getMessage(unsigned i) const
{
    return i < getMessageCount() ? (*m_list)[m_first + i].get() : nullptr;
}

unsigned CompositeMessage::getLastMsgTime() const
{
    return m_first == m_end ? 0xFFFFFFFF : (*m_list)[m_end - 1]->getTime();
}

void CompositeMessage::splitByIndex(unsigned i, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    split(m_first + std::min(i, getMessageCount()), first, second);
}

void CompositeMessage::splitByTime(unsigned time, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    unsigned position = m_first;
    while (position < m_end && (*m_list)[position]->getTime() < time)
        ++position;
    split(position, first, second);
}

void CompositeMessage::split(unsigned position, CompositeMessagePtr& first, CompositeMessagePtr& second)
{
    // The arguments may be the only holders of this aggregate.
    const CompositeMessagePtr whole(this);
    if (position <= m_first) {
        first = nullptr;
        second = whole;
    } else if (position >= m_end) {
        first = whole;
        second = nullptr;
    } else {
        const unsigned cut = offsetAt(position) - offsetAt(m_first);
        first = CompositeMessagePtr(new CompositeMessage(*this, m_first, position, 0, cut));
        second = CompositeMessagePtr(new CompositeMessage(*this, position, m_end, cut, getMsgLen() - cut));
    }
}

CompositeMessagePtr CompositeMessage::getPrev() const
{
    CompositeMessagePtr before;
    CompositeMessagePtr rest;
    if (m_parent)
        m_parent->split(m_first, before, rest);
    return before;
}

CompositeMessagePtr CompositeMessage::getNext() const
{
    CompositeMessagePtr rest;
    CompositeMessagePtr after;
    if (m_parent)
        m_parent->split(m_end, rest, after);
    return after;
}

}  // namespace krx
