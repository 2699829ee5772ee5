// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/messagebuffer.h"

#include "util/SRException.h"
#include "util/krxassert.h"
#include "util/messagerecord.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace krx::util {

namespace {

constexpr const char* kMessageBufferPlace = "util/messagebuffer";
constexpr int kBufferMemoryLine = 104;
constexpr int kLengthLine = 112;
constexpr int kGrowLine = 126;

/// An allocated memory, null when there is none.
SRMemoryPtr allocate(unsigned capacity)
{
    try {
        return SRMemoryPtr(new SRMemory(capacity));
    } catch (const SROutOfMemory&) {
        return nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

MessageBuffer::MessageBuffer(unsigned capacity) : MessageBuffer(allocate(capacity)) {}

MessageBuffer::MessageBuffer(const SRMemoryPtr& memory)
{
    takeMemory(memory);
}

void MessageBuffer::clear()
{
    m_used = 0;
    m_flags = 0;
    m_endTime = 0;
    m_startTime = 0;
    m_numMsgs = 0;
    m_firstMsgLen = 0;
}

void MessageBuffer::addMessage(unsigned char type, const void* data, unsigned length, unsigned time)
{
    if (!m_data) {
        assertFailed(kMessageBufferPlace, kBufferMemoryLine);
        return;
    }
    if (length > kMaxMessageLength || (!data && length != 0)) {
        assertFailed(kMessageBufferPlace, kLengthLine);
        return;
    }
    const unsigned recordLength = length + kRecordOverhead;
    if (!grow(static_cast<unsigned long long>(m_used) + recordLength)) {
        assertFailed(kMessageBufferPlace, kGrowLine);
        return;
    }

    writeRecord(m_data + m_used, {type, length, time, 0}, data);

    m_used += recordLength;
    const unsigned char kind = type & kTypeMask;
    if (kind == kMsgVideo)
        m_flags |= kVideo;
    else if (kind != kMsgAudio)
        m_flags |= kOther;
    else if (length != 0)
        m_flags |= kAudio;
    if (m_numMsgs == 0) {
        m_startTime = time;
        m_firstMsgLen = recordLength;
    }
    m_endTime = std::max(m_endTime, time);
    ++m_numMsgs;
}

SRBuffer MessageBuffer::getBuffer() const
{
    return m_memory ? SRBuffer(m_memory, 0, m_used) : SRBuffer();
}

/// Makes the capacity at least needed bytes. The old memory stays as it is for those who share it.
bool MessageBuffer::grow(unsigned long long needed)
{
    if (needed <= m_capacity)
        return true;
    unsigned long long capacity = m_capacity;
    while (capacity < needed)
        capacity *= 2;
    if (capacity > std::numeric_limits<unsigned>::max())
        return false;
    const SRMemoryPtr memory = allocate(static_cast<unsigned>(capacity));
    if (!memory)
        return false;
    std::memcpy(memory->data(), m_data, m_used);
    takeMemory(memory);
    return m_data != nullptr;
}

void MessageBuffer::takeMemory(const SRMemoryPtr& memory)
{
    m_memory = memory;
    m_data = memory && memory->capacity() != 0 ? memory->data() : nullptr;
    m_capacity = m_data ? memory->capacity() : 0;
}

}  // namespace krx::util
