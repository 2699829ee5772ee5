// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRMessage.h"

#include <memory>
#include <vector>

namespace krx {

class CompositeMessage;
using CompositeMessagePtr = SRPtr<CompositeMessage>;

/// One message inside an aggregate. It lives as long as its aggregate, so it counts on the aggregate's
/// references.
class SubMessage : public SingleMessage
{
public:
    SubMessage(CompositeMessage* owner, unsigned index, unsigned offset);

    int _use() const override;
    int _release() const override;

    unsigned getIndex() const { return m_index; }
    /// Where its record begins in the aggregate's body.
    unsigned getOffset() const { return m_offset; }

private:
    CompositeMessage* const m_owner;
    const unsigned m_index;
    const unsigned m_offset;
};

/// An aggregate message: a body of records, presented as a list of messages. No byte of it is copied.
///
/// A record is an encoded message header, the inner body and the size of both (u32, not read). Bit 0x20 of a
/// record's type is a flag: it is cleared in the message's type and kept in its first flag byte.
class CompositeMessage : public Message
{
public:
    /// length bytes of another memory, which it keeps alive.
    class ProxyMemory : public SRMemory
    {
    public:
        ProxyMemory(const SRMemoryPtr& parent, unsigned char* data, unsigned length);

    private:
        const SRMemoryPtr m_parent;
    };
    /// The same by offset; cut to what the parent holds.
    class PartialMemory : public SRMemory
    {
    public:
        PartialMemory(const SRMemoryPtr& parent, unsigned offset, unsigned length);

    private:
        const SRMemoryPtr m_parent;
    };

    // Bits of getDataKinds().
    static constexpr unsigned char kHasData = 0x01;    ///< AMF0 data
    static constexpr unsigned char kHasDataEx = 0x02;  ///< AMF3 data

    /// The records in the first length bytes of a memory. Records that are cut off are reported and left out.
    CompositeMessage(const SRMemoryPtr& body, unsigned length);
    /// A new aggregate over the body of an aggregate message; null, and reported, for other messages.
    static CompositeMessagePtr fromMessage(const MessagePtr& message);

    unsigned getMessageCount() const { return m_end - m_first; }
    /// Message i of this aggregate's range; null when there is none.
    SubMessage* getMessage(unsigned i) const;

    /// 0xFFFFFFFF without records.
    unsigned getLastMsgTime() const override;
    /// It has audio and no video.
    bool isCritical() const override { return m_audioFormats != 0 && m_videoCodecs == 0; }
    void addToMsgCount(MultiMsgCounter& counter) const override { counter.add(m_counter); }
    const MultiMsgCounter& getCounter() const { return m_counter; }
    /// Bit f: an audio record of sound format f.
    unsigned short getAudioFormats() const { return m_audioFormats; }
    /// Bit c: a video record of codec c.
    unsigned short getVideoCodecs() const { return m_videoCodecs; }
    unsigned char getDataKinds() const { return m_dataKinds; }

    // Cuts the range in two aggregates; an empty part is null, and a part that is the whole is this aggregate
    // itself. Parts share this aggregate's body and keep it alive.

    /// Before record i.
    void splitByIndex(unsigned i, CompositeMessagePtr& first, CompositeMessagePtr& second);
    /// Before the first record that is not earlier than time (ms).
    void splitByTime(unsigned time, CompositeMessagePtr& first, CompositeMessagePtr& second);

    /// What the aggregate that this one was split from has before and after it; null when there is nothing.
    CompositeMessagePtr getPrev() const;
    CompositeMessagePtr getNext() const;

private:
    using SubMessages = std::vector<std::unique_ptr<SubMessage>>;

    CompositeMessage(CompositeMessage& parent, unsigned first, unsigned end, unsigned offset,
                     unsigned length);

    void setHeaderFields(unsigned length);
    void initialize(unsigned char* body, unsigned length);
    void initPerMessageInfo();
    /// position: of the parent's list.
    void split(unsigned position, CompositeMessagePtr& first, CompositeMessagePtr& second);
    unsigned offsetAt(unsigned position) const { return (*m_list)[position]->getOffset(); }

    unsigned short m_audioFormats = 0;
    unsigned short m_videoCodecs = 0;
    unsigned char m_dataKinds = 0;
    const CompositeMessagePtr m_parent;
    SubMessages m_ownMessages;
    const SubMessages* m_list = &m_ownMessages;  ///< of the aggregate that has the whole body
    // The range in that list.
    unsigned m_first = 0;
    unsigned m_end = 0;
    MultiMsgCounter m_counter;
};

}  // namespace krx
