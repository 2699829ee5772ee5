// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRBuffer.h"

namespace krx::util {

/// Packs messages one after the other as records, as a ZMV file holds them (see RecordHeader).
class MessageBuffer
{
public:
    enum Flags : unsigned
    {
        kVideo = 0x01,
        kAudio = 0x04,  ///< an audio message with a body
        kOther = 0x08,
    };

    static constexpr unsigned kDefaultCapacity = 64 * 1024;

    /// Without memory for capacity bytes, and for a capacity of 0, the buffer takes no messages.
    explicit MessageBuffer(unsigned capacity = kDefaultCapacity);
    /// Packs into memory (null: takes no messages), and moves to a larger one when it is full.
    explicit MessageBuffer(const SRMemoryPtr& memory);

    void clear();
    /// Appends a message; time in ms. A message that finds no room, or whose body is too long for a header
    /// (above 0xFFFFFF bytes), is reported as an assertion and not added.
    void addMessage(unsigned char type, const void* data, unsigned length, unsigned time);

    /// The packed bytes. They share the memory: a message added after clear() overwrites them.
    SRBuffer getBuffer() const;
    unsigned getUsed() const { return m_used; }
    /// Flags of the messages seen.
    unsigned getFlags() const { return m_flags; }
    /// Largest time added, in ms.
    unsigned getEndTime() const { return m_endTime; }
    /// Time of the first message, in ms.
    unsigned getStartTime() const { return m_startTime; }
    unsigned getNumMsgs() const { return m_numMsgs; }
    /// Packed length of the first message.
    unsigned getFirstMsgLen() const { return m_firstMsgLen; }

private:
    bool grow(unsigned long long needed);
    void takeMemory(const SRMemoryPtr& memory);

    SRMemoryPtr m_memory;
    unsigned char* m_data = nullptr;
    unsigned m_capacity = 0;
    unsigned m_used = 0;
    unsigned m_flags = 0;
    unsigned m_endTime = 0;
    unsigned m_startTime = 0;
    unsigned m_numMsgs = 0;
    unsigned m_firstMsgLen = 0;
};

}  // namespace krx::util
