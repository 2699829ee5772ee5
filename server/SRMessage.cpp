// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRMessage.h"

#include "util/SRException.h"
#include "util/krxassert.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr char kMessagePlace[] = "server/compositemessage";
constexpr int kLengthLine = 251;
constexpr int kSizeLine = 268;

std::mutex* nextMutex()
{
    constexpr unsigned kMutexes = 250;
    static std::array<std::mutex, kMutexes> mutexes;
    static std::atomic<unsigned> counter{0};
    return &mutexes[counter.fetch_add(1, std::memory_order_relaxed) % kMutexes];
}

SRMemoryPtr newBody(unsigned capacity)
{
    SRPool<SRMemory>* const pool = SRMessage::m_defaultMemPool.load(std::memory_order_acquire);
    if (!pool)
        return SRMemoryPtr(SRMemory::createForPool(capacity, nullptr));
    SRMemoryPtr body = pool->acquire(capacity);
    // A block that was used before may be larger.
    if (!body->resize(capacity))
        throw SROutOfMemory();
    return body;
}

}  // namespace

void SRMessageHeader::serialize(unsigned char* out) const
{
    if (length > kMaxMessageLength)
        krx::util::assertFailed(kMessagePlace, kLengthLine);
    store(out);
}

const char* SRMessageHeader::getTypeAsString()
{
    const bool encrypted = (type & kEncryptedFlag) != 0;
    type = static_cast<unsigned char>(type & ~kEncryptedFlag);
    switch (type) {
        case kMsgVideo:
            return encrypted ? "ENCRYPTED VIDEO" : "VIDEO";
        case kMsgAudio:
            return encrypted ? "ENCRYPTED AUDIO" : "AUDIO";
        case kMsgData:
        case kMsgDataEx:
            return encrypted ? "ENCRYPTED DATA" : "DATA";
        default:
            return encrypted ? "ENCRYPTED UNKNOWN" : "UNKNOWN";
    }
}

namespace krx {

unsigned Message::getMsgLen() const
{
    return util::RecordHeader::loadLength(m_header.data());
}

unsigned Message::getTime() const
{
    return util::RecordHeader::loadTime(m_header.data());
}

void Message::setTime(unsigned time)
{
    util::RecordHeader::storeTime(m_header.data(), time);
}

unsigned Message::getStreamId() const
{
    return util::RecordHeader::loadStreamId(m_header.data());
}

void Message::setStreamId(unsigned id)
{
    util::RecordHeader::storeStreamId(m_header.data(), id);
}

unsigned Message::getBodyLength() const
{
    return m_body ? std::min(getMsgLen(), m_body->capacity()) : 0;
}

bool Message::setHeaderLength(unsigned length)
{
    if (length > kMaxMessageLength) {
        util::assertFailed(kMessagePlace, kLengthLine);
        return false;
    }
    util::RecordHeader::storeLength(m_header.data(), length);
    return true;
}

SingleMessage::SingleMessage() : m_mutex(nextMutex()) {}

int SingleMessage::videoFrameKind() const
{
    if (getPlainType() != kMsgVideo || getBodyLength() == 0)
        return -1;
    return getBody()[0] >> 4;
}

bool SingleMessage::isCritical() const
{
    constexpr int kCommandFrame = 5;
    return getPlainType() != kMsgVideo || videoFrameKind() == kCommandFrame;
}

void SingleMessage::addToMsgCount(MultiMsgCounter& counter) const
{
    counter.addOne(static_cast<char>(getPlainType()));
}

}  // namespace krx

std::atomic<SRPool<SRMemory>*> SRMessage::m_defaultMemPool{nullptr};

SRMessage::SRMessage(unsigned size, SRPool<SRMessage>* pool) : m_pool(pool)
{
    m_body = newBody(capacityFor(size));
}

SRPool<SRMessage>& SRMessage::messagePool()
{
    // Messages may be released while the process ends, so the pools are never destroyed.
    static SRPool<SRMessage>* const pool = [] {
        auto bodies = std::make_unique<SRPool<SRMemory>>();
        auto messages = std::make_unique<SRPool<SRMessage>>();
        m_defaultMemPool.store(bodies.release(), std::memory_order_release);
        return messages.release();
    }();
    return *pool;
}

SRMessagePtr SRMessage::create(unsigned size)
{
    return messagePool().acquire(size);
}

int SRMessage::_release() const
{
    // Read first: as soon as the count is down the message may be gone.
    SRPool<SRMessage>* const pool = m_pool;
    const int count = SRObject::_release();
    if (count == 1 && pool)
        pool->giveBack(const_cast<SRMessage*>(this));
    return count;
}

int SRMessage::getMsgSlot() const
{
    switch (getPlainType()) {
        case kMsgAudio:
            return 0;
        case kMsgVideo:
            return 1;
        case kMsgContainerEx:
        case kMsgContainer:
            return 3;
        default:
            return 2;
    }
}

bool SRMessage::setMsgLen(unsigned len, bool alsoMemory)
{
    if (!setHeaderLength(len))
        return false;
    if (alsoMemory && m_body)
        m_body->setUsed(len);
    return true;
}

short SRMessage::getCtrlMsgType() const
{
    if (getBodyLength() < 2 || m_body->getUsed() < 2)
        return 0;
    return static_cast<short>(krx::util::loadBig16(getBody()));
}

unsigned SRMessage::capacityFor(unsigned size)
{
    const unsigned whole = size & ~3U;
    if (whole > std::numeric_limits<unsigned>::max() - 4)
        throw SROutOfMemory();
    return whole + 4;
}

bool SRMessage::reallocBuffer(unsigned n)
{
    const auto resize = [&] {
        const unsigned capacity = capacityFor(n);
        if (m_body && m_body->capacity() == capacity)
            return true;
        // A body that others hold too must not change.
        const bool shared = m_body && m_body->_get() > (m_body->pool() ? 2 : 1);
        if (m_body && !shared)
            return m_body->resize(capacity);
        const SRMemoryPtr body = newBody(capacity);
        if (m_body) {
            std::memcpy(body->data(), m_body->data(), std::min(capacity, m_body->capacity()));
            body->setUsed(std::min(capacity, m_body->getUsed()));
        }
        m_body = body;
        return true;
    };
    return krx::util::unlessOutOfMemory(resize, [] { return false; });
}

bool SRMessage::setSize(unsigned n)
{
    if (n > kMaxMessageLength) {
        krx::util::assertFailed(kMessagePlace, kSizeLine);
        return false;
    }
    if ((!m_body || n > m_body->capacity()) && !reallocBuffer(n))
        return false;
    return setMsgLen(n, true);
}

bool SRMessage::appendSpace(unsigned n, unsigned char*& out)
{
    const unsigned length = getMsgLen();
    if (n > kMaxMessageLength - length) {
        krx::util::assertFailed(kMessagePlace, kSizeLine);
        return false;
    }
    // Doubling keeps many small appends cheap; without memory for that, just what is needed.
    const unsigned capacity = m_body ? m_body->capacity() : 0;
    if (length + n > capacity)
        reallocBuffer(std::min(std::max(length + n, capacity * 2), kMaxMessageLength));
    if (!setSize(length + n))
        return false;
    out = getBody() + length;
    return true;
}

bool SRMessage::write(const void* bytes, unsigned n)
{
    unsigned char* out = nullptr;
    if (!appendSpace(n, out))
        return false;
    if (n > 0)
        std::memcpy(out, bytes, n);
    return true;
}

bool SRMessage::writeU8(unsigned char value)
{
    return write(&value, sizeof value);
}

bool SRMessage::writeU16(unsigned short value)
{
    const unsigned short big = krx::util::fromBigEndian(value);
    return write(&big, sizeof big);
}

bool SRMessage::writeU32(unsigned value)
{
    const unsigned big = krx::util::fromBigEndian(value);
    return write(&big, sizeof big);
}

bool SRMessage::writeI64(long long value)
{
    const unsigned long long big = krx::util::fromBigEndian(static_cast<unsigned long long>(value));
    return write(&big, sizeof big);
}

bool SRMessage::writeLenPrefixString(const SRString& text)
{
    const SRMBString bytes = text.toMultiByte();
    const unsigned before = getMsgLen();
    const auto length = static_cast<unsigned>(bytes.size());
    if (!writeU32(length))
        return false;
    return write(bytes.c_str(), length) || !setSize(before);
}

SRString SRMessage::getLenPrefixString(unsigned char*& cursor) const
{
    constexpr std::size_t kLengthBytes = 4;
    unsigned char* const begin = getBody();
    if (!begin)
        return SRString();
    unsigned char* const end = begin + getBodyLength();
    const std::less<const unsigned char*> before;
    if (before(cursor, begin) || before(end, cursor))
        return SRString();
    if (static_cast<std::size_t>(end - cursor) >= kLengthBytes) {
        const unsigned length = krx::util::loadBig32(cursor);
        unsigned char* const text = cursor + kLengthBytes;
        if (length <= static_cast<std::size_t>(end - text)) {
            cursor = text + length;
            return SRString::fromMultiByte(std::string_view(reinterpret_cast<const char*>(text), length));
        }
    }
    cursor = end;
    return SRString();
}

SRMessagePtr SRMessage::clone(bool) const
{
    const unsigned length = getBodyLength();
    SRMessagePtr copy = m_pool ? m_pool->acquire(length) : SRMessagePtr(new SRMessage(length));
    copy->m_header = m_header;
    if (length > 0)
        std::memcpy(copy->getBody(), getBody(), length);
    copy->m_body->setUsed(length);
    return copy;
}

SRMessage* SRMessage::createForPool(unsigned size, SRPool<SRMessage>* pool)
{
    auto* const message = new (std::nothrow) SRMessage(size, pool);
    if (!message)
        throw SROutOfMemory();
    return message;
}

bool SRMessage::prepareForReuse(unsigned size)
{
    try {
        if (!m_body || m_body->capacity() < capacityFor(size))
            m_body = newBody(capacityFor(size));
        m_body->setUsed(0);
        return true;
    } catch (const SROutOfMemory&) {
        return false;
    }
}

std::size_t SRMessage::pooledBytes() const
{
    return std::size_t{kPoolOverhead} + (m_body ? m_body->capacity() : 0);
}

void SRMessage::onPooled()
{
    m_body.reset();
    m_header.fill(0);
    m_flags.fill(0);
    for (const unsigned i : {0U, 1U}) {
        ownerRef(i).reset();
        ownerWord(i) = 0;
    }
}

namespace krx::util {

bool writeLenPrefixBuffer(const SRMessagePtr& message, const SRBuffer& buffer)
{
    return message->writeU32(buffer.length()) && message->write(buffer.data(), buffer.length());
}

SRBuffer readLenPrefixBuffer(unsigned char*& cursor)
{
    const unsigned length = loadBig32(cursor);
    cursor += sizeof length;
    if (length == 0)
        return SRBuffer();
    SRBuffer buffer(length);
    std::memcpy(buffer.base(), cursor, length);
    buffer.memory()->setUsed(length);
    buffer.setEnd(length);
    cursor += length;
    return buffer;
}

}  // namespace krx::util
