// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

class IQVStreamOpenContext;
class ISegmentHolder;
struct SegmentBounds;

/// What IQVStreamAdaptor::getAttribute returns.
enum AttrType_t : unsigned
{
    kAttrModifiedTime = 1,  ///< 4 bytes, seconds since 1970
    kAttrDuration = 2,      ///< 4 bytes, ms
    kAttrSize = 3,          ///< 8 bytes, signed, bytes
    kAttrMetadata = 4,      ///< the body of the "onMetaData" message; one that begins with 0 is of type 15
};

/// Kinds of context messages.
enum ContextType_t : unsigned
{
    kContextHeader = 1,  ///< a decoder configuration, sent before the media that it configures
    kContextEnder = 2,   ///< sent after the media that it closes
};

/// Receives the context messages that a lookup finds.
class IContextHolder
{
public:
    /// data is the adaptor's and valid for the call only. time in ms.
    virtual void add(unsigned char type, void* data, unsigned length, unsigned time, long long position,
                     unsigned trackId, ContextType_t contextType) = 0;

protected:
    ~IContextHolder() = default;
};

/// Receives all context messages of a stream in the form of a contexts file.
class IAllContextHolder
{
public:
    /// data is the adaptor's and valid for the call only.
    virtual void add(void* data, unsigned length) = 0;

protected:
    ~IAllContextHolder() = default;
};

/// A stream module as seen by its user. A handle stands for one open stream and is valid until close.
///
/// Any number of threads may open streams and use different handles at the same time. One handle serves one
/// thread at a time, unless the module says more. A failure is a result, but for lack of memory, which is
/// thrown: SROutOfMemory or std::bad_alloc.
class IQVStreamAdaptor
{
public:
    virtual ~IQVStreamAdaptor() = default;
    virtual unsigned getVersion() const = 0;
    /// Opens the stream called name, a path in bytes. 0 on success, and only then handle is set. context may
    /// be null.
    virtual int open(IQVStreamOpenContext* context, const char* name, unsigned flags, void* userData,
                     void*& handle) = 0;
    virtual void setUserData(void* handle, void* userData) = 0;
    virtual void close(void* handle) = 0;
    virtual bool erase(void* handle) = 0;
    /// Bytes held for the stream.
    virtual unsigned getMemoryOverhead(void* handle) const = 0;
    /// Milliseconds.
    virtual unsigned getDuration(void* handle) const = 0;
    /// Bytes.
    virtual long long getSize(void* handle) const = 0;
    /// The number of positions.
    virtual long long getEndPosition(void* handle) const = 0;
    /// Kinds of messages: 1 video, 4 audio, 8 data.
    virtual unsigned char getType(void* handle) const = 0;
    virtual bool findSegmentByIndex(void* handle, long long index, SegmentBounds* bounds) = 0;
    /// time in ms. Both leave bounds unchanged and return false when no segment holds it.
    virtual bool findSegmentByTime(void* handle, unsigned time, SegmentBounds* bounds) = 0;
    /// Delivers the segment's messages to the holder, in order. False when that ended early;
    /// the context got the reason.
    virtual bool loadSegment(void* handle, SegmentBounds* bounds, ISegmentHolder* holder) = 0;
    virtual void onFreeSegment(void* handle, unsigned tablePage) = 0;
    virtual bool record(void* handle, unsigned char type, const void* data, unsigned length,
                        unsigned time) = 0;
    virtual bool flushSegment(void* handle, SegmentBounds* bounds) = 0;
    virtual bool stopRecord(void* handle) = 0;
    virtual unsigned getPermission() const = 0;
    /// Copies the attribute to out. size: room on entry, bytes written on success. On failure it is the size
    /// needed, but 0 for kAttrMetadata.
    virtual bool getAttribute(void* handle, AttrType_t type, void* out, unsigned& size) const = 0;
    virtual bool getMediaContexts(void* handle, ContextType_t type, long long position,
                                  IContextHolder* holder, bool atPosition) const = 0;
    virtual bool getAllMediaContexts(void* handle, IAllContextHolder* holder) const = 0;
    virtual bool updateMediaContext(void* handle, ContextType_t contextType, unsigned char type,
                                    unsigned time, void* data, unsigned length) = 0;
};
