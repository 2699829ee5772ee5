// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRMessage.h"

#include <array>
#include <memory>
#include <utility>
#include <vector>

namespace krx {

class CompositeMessage;
using CompositeMessagePtr = SRPtr<CompositeMessage>;

/// One message inside an aggregate. It lives as long as its aggregate, which counts its references.
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

/// An aggregate message: a body of records, presented as a list of messages. No byte of it is copied. What
/// makes an aggregate throws std::bad_alloc; any thread may read or split it.
///
/// A record is a stored message (see util::RecordHeader) whose back-pointer is not read. Bit 0x20 of a
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

    /// The records in the first length bytes of a memory, whose used length that becomes. A record that is
    /// cut off is reported and left out. The memory is kept; one that does not own its bytes (SRMemory
    /// without a free function) needs them as long as the aggregate or a message of it is held.
    CompositeMessage(const SRMemoryPtr& body, unsigned length);
    /// A new aggregate over the body of an aggregate message; null, and reported, for other messages.
    static CompositeMessagePtr fromMessage(const MessagePtr& message);

    unsigned getMessageCount() const { return m_range->end - m_range->first; }
    /// Message i of this aggregate's range; null when there is none. It is the aggregate's; an SRPtr on it
    /// keeps the aggregate alive.
    SubMessage* getMessage(unsigned i) const;

    /// 0xFFFFFFFF without records.
    unsigned getLastMsgTime() const override;
    /// It has audio and no video.
    bool isCritical() const override { return getAudioFormats() != 0 && getVideoCodecs() == 0; }
    void addToMsgCount(MultiMsgCounter& counter) const override { counter.add(getCounter()); }
    const MultiMsgCounter& getCounter() const { return m_range->counter; }
    /// Bit f: an audio record of sound format f.
    unsigned short getAudioFormats() const { return bitsOf(m_range->audioFormats); }
    /// Bit c: a video record of codec c.
    unsigned short getVideoCodecs() const { return bitsOf(m_range->videoCodecs); }
    /// kHasData and kHasDataEx, for the data records that there are.
    unsigned char getDataKinds() const;

    // Cuts the range in two aggregates; an empty part is null, and a part that is the whole is this aggregate
    // itself. Parts share the body of the aggregate that they all come from, and keep it alive. The time is
    // linear in the smaller part: taking all records off one by one is linear too.

    /// Before record i.
    void splitByIndex(unsigned i, CompositeMessagePtr& first, CompositeMessagePtr& second);
    /// Before the first record that is not earlier than time (ms).
    void splitByTime(unsigned time, CompositeMessagePtr& first, CompositeMessagePtr& second);

    /// The part before, and after, this one in the aggregate that it was split from; null when there is none.
    CompositeMessagePtr getPrev() const;
    CompositeMessagePtr getNext() const;

private:
    /// How a record was counted when the whole was made: subtraction must match addition.
    struct RecordKind
    {
        unsigned char type;
        short firstByte;  ///< of the body; -1 without one
    };

    using CodecCounts = std::array<unsigned, 16>;

    /// Records [first, end) of the whole, and how many of them are of each kind. The counts of a shorter
    /// range are found by subtraction.
    struct Range
    {
        unsigned first = 0;
        unsigned end = 0;
        MultiMsgCounter counter{};
        CodecCounts audioFormats{};
        CodecCounts videoCodecs{};
    };
    using RangePtr = std::shared_ptr<const Range>;

    /// A part of the aggregate that origin is or comes from.
    CompositeMessage(const CompositeMessage& origin, RangePtr range, RangePtr parent);

    void initialize(unsigned char* body, unsigned length);
    void setHeaderFields(unsigned length);
    void split(unsigned position, CompositeMessagePtr& first, CompositeMessagePtr& second);
    Range count(unsigned first, unsigned end) const;
    std::pair<RangePtr, RangePtr> cut(const Range& range, unsigned position) const;
    static unsigned short bitsOf(const CodecCounts& counts);

    const CompositeMessage& whole() const { return m_whole ? *m_whole : *this; }
    const SubMessage& recordAt(unsigned position) const { return *whole().m_messages[position]; }
    /// Where the records from position on begin in the body of the whole.
    unsigned offsetAt(unsigned position) const;

    const SRPtr<const CompositeMessage> m_whole;            ///< has the body and all records; null: this one
    std::vector<std::unique_ptr<SubMessage>> m_messages{};  ///< of the whole
    std::vector<RecordKind> m_kinds{};                      ///< of m_messages
    unsigned m_bodyLength = 0;                              ///< of the whole
    RangePtr m_range = std::make_shared<Range>();
    /// The range that this part was split from; null for the whole. Earlier ancestors are not kept: a chain
    /// of parts of parts costs nothing to hold or to release.
    const RangePtr m_parent;
};

}  // namespace krx
