// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/multimsgcounter.h"
#include "util/SRBuffer.h"
#include "util/SRObject.h"
#include "util/SRPool.h"
#include "util/SRString.h"
#include "util/messagerecord.h"

#include <array>
#include <atomic>
#include <mutex>

/// The decoded header of a stored message.
struct SRMessageHeader : krx::util::RecordHeader
{
    /// Decodes kSize bytes.
    static SRMessageHeader parse(const unsigned char* in) { return {load(in)}; }
    /// Encodes to kSize bytes. A length above kMaxMessageLength is reported; its low 24 bits are written.
    void serialize(unsigned char* out) const;
    /// Name of the type in listings: "VIDEO", "AUDIO", "DATA" or "UNKNOWN", with "ENCRYPTED " in front when
    /// that flag is set. Clears the flag in the header. The text is static.
    const char* getTypeAsString();
};

namespace krx {

/// What every message has: the encoded header and a counted body. Any thread may hold and read a message; one
/// that changes header or body must be alone.
class Message : public SRObject
{
public:
    using HeaderBytes = std::array<unsigned char, SRMessageHeader::kSize>;

    unsigned char getType() const { return m_header[0]; }
    void setType(unsigned char type) { m_header[0] = type; }
    /// The type without its flags.
    unsigned char getPlainType() const { return m_header[0] & kTypeMask; }
    /// The body length that the header states.
    unsigned getMsgLen() const;
    unsigned getTime() const;  ///< ms
    void setTime(unsigned time);
    unsigned getStreamId() const;
    void setStreamId(unsigned id);

    /// The header as it is stored, see SRMessageHeader.
    const HeaderBytes& getHeader() const { return m_header; }
    void setHeader(const HeaderBytes& header) { m_header = header; }

    const SRMemoryPtr& getMemory() const { return m_body; }
    void setMemory(const SRMemoryPtr& memory) { m_body = memory; }
    /// First body byte; null without memory.
    unsigned char* getBody() const { return m_body ? m_body->data() : nullptr; }
    /// Body bytes that are there: the header's length, but no more than the memory holds.
    unsigned getBodyLength() const;

    /// Two bytes for the owner's use.
    unsigned char getFlag(unsigned i) const { return m_flags[i & 1]; }
    void setFlag(unsigned i, unsigned char flag) { m_flags[i & 1] = flag; }

    /// Timestamp of the last message inside, ms.
    virtual unsigned getLastMsgTime() const = 0;
    /// Must not be dropped when a connection is slow.
    virtual bool isCritical() const = 0;
    /// Adds the messages inside, by type, to counter.
    virtual void addToMsgCount(MultiMsgCounter& counter) const = 0;

protected:
    Message() = default;
    /// Writes the low 24 bits of the length; false, and reported, when that is above kMaxMessageLength.
    bool setHeaderLength(unsigned length);

    HeaderBytes m_header{};
    SRMemoryPtr m_body;
    std::array<unsigned char, 2> m_flags{};
};

/// A message that is not made of others.
class SingleMessage : public Message
{
public:
    unsigned getLastMsgTime() const override { return getTime(); }
    bool isCritical() const override;
    void addToMsgCount(MultiMsgCounter& counter) const override;
    /// A video key frame.
    bool isSyncPoint() const { return videoFrameKind() == 1; }
    /// A video frame that no other frame needs.
    bool isDroppable() const { return videoFrameKind() == 3; }

    /// Two objects and two words for the owner's use.
    SRPtr<SRObject>& ownerRef(unsigned i) { return m_ownerRefs[i & 1]; }
    unsigned& ownerWord(unsigned i) { return m_ownerWords[i & 1]; }
    /// One of a fixed number of mutexes, which other messages share.
    std::mutex& getMutex() const { return *m_mutex; }

protected:
    SingleMessage();

private:
    /// High nibble of a video body's first byte; -1 for other messages and empty bodies.
    int videoFrameKind() const;

    std::array<SRPtr<SRObject>, 2> m_ownerRefs;
    std::mutex* m_mutex;
    std::array<unsigned, 2> m_ownerWords{};
};

using MessagePtr = SRPtr<Message>;
using SingleMessagePtr = SRPtr<SingleMessage>;

}  // namespace krx

class SRMessage;
using SRMessagePtr = SRPtr<SRMessage>;

/// A message that owns its body and can grow it. Lengths are in bytes, at most kMaxMessageLength; the body
/// length stands in the header and is mirrored to the memory's used length.
class SRMessage : public krx::SingleMessage
{
public:
    /// Bytes that a pooled message counts besides its body's capacity.
    static constexpr unsigned kPoolOverhead = 112;
    static constexpr unsigned kDefaultSize = 256;

    /// Where bodies come from; null: they are allocated. See messagePool().
    static std::atomic<SRPool<SRMemory>*> m_defaultMemPool;

    /// A zero header and a body of capacity (size & ~3) + 4. pool owns the message or is null. Throws
    /// SROutOfMemory.
    explicit SRMessage(unsigned size, SRPool<SRMessage>* pool = nullptr);

    /// The process-wide pool of messages; its first use also makes the default memory pool.
    static SRPool<SRMessage>& messagePool();
    /// An empty message from that pool. Throws SROutOfMemory.
    static SRMessagePtr create(unsigned size = kDefaultSize);

    /// With an owning pool, a count of 1 is the pool's reference: the message goes back there.
    int _release() const override;

    /// Queue that the message belongs to: 0 audio, 1 video, 2 others, 3 shared objects.
    int getMsgSlot() const;
    /// Sets the header's length and, with alsoMemory, the memory's used length. False when len is too large.
    bool setMsgLen(unsigned len, bool alsoMemory);
    /// First body word of a user-control message, signed; 0 when the body is shorter.
    short getCtrlMsgType() const;

    /// Gives the body the capacity (n & ~3) + 4 and keeps what fits. False, and unchanged, without memory.
    bool reallocBuffer(unsigned n);
    /// Sets the body length and grows the body when needed. False, and unchanged, when n is too large.
    bool setSize(unsigned n);

    // Appending, integers big-endian. False, and unchanged, when the body cannot grow.
    bool writeU8(unsigned char value);
    bool writeU16(unsigned short value);
    bool writeU32(unsigned value);
    bool writeI64(long long value);
    /// bytes must not lie in the body.
    bool write(const void* bytes, unsigned n);
    /// The text in UTF-8 after its length in bytes (u32).
    bool writeLenPrefixString(const SRString& text);

    /// Reads such a text at cursor, which points into the body, and advances cursor. A text that does not end
    /// inside the body is empty and takes cursor to the body's end.
    SRString getLenPrefixString(unsigned char*& cursor) const;

    /// A new message with the same header and body bytes, from the same pool when there is one.
    SRMessagePtr clone(bool = false) const;

    SRPool<SRMessage>* pool() const { return m_pool; }

    // Required by SRPool.
    static SRMessage* createForPool(unsigned size, SRPool<SRMessage>* pool);
    bool prepareForReuse(unsigned size);
    std::size_t pooledBytes() const;
    void onPooled();

private:
    /// Throws SROutOfMemory when the capacity exceeds 32 bits.
    static unsigned capacityFor(unsigned size);
    bool appendSpace(unsigned n, unsigned char*& out);

    SRPool<SRMessage>* m_pool;
};

namespace krx::util {

/// Appends the buffer's length (u32) and its bytes; false when either does not fit.
bool writeLenPrefixBuffer(const SRMessagePtr& message, const SRBuffer& buffer);
/// Reads such a buffer at cursor into new memory and advances cursor. The caller vouches for the bytes.
/// Throws SROutOfMemory.
SRBuffer readLenPrefixBuffer(unsigned char*& cursor);

}  // namespace krx::util
