// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/amfmarkers.h"
#include "util/SRBuffer.h"
#include "util/SRObject.h"
#include "util/SRString.h"
#include "util/SRTime.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <string_view>

/// Kinds of values. The codes are those of the AMF0 type markers, with extensions from 32 on. A value never
/// has the kinds 4, 7, 9, 12 and 13: these are markers only.
enum SRDataKind : unsigned char
{
    kNumberType = kAMF0Number,
    kBoolType = kAMF0Boolean,
    kStringType = kAMF0String,
    kObjectType = kAMF0Object,
    kMovieClipType = kAMF0MovieClip,
    kNullType = kAMF0Null,
    kUndefinedType = kAMF0Undefined,
    kReferenceType = kAMF0Reference,
    kArrayType = kAMF0ECMAArray,  ///< ECMA array
    kObjectEndType = kAMF0ObjectEnd,
    kStrictArrayType = kAMF0StrictArray,
    kDateType = kAMF0Date,
    kLongStringType = kAMF0LongString,
    kUnsupportedType = kAMF0Unsupported,
    kXMLType = kAMF0XMLDocument,
    kTypedObjectType = kAMF0TypedObject,     ///< entry 0, "constructor", holds the class name
    kAvmPlusObjectType = kAMF0SwitchToAMF3,  ///< an AMF3 value that is carried in an array
    kBlobType = 32,
    kInt64Type = 34,
};

class SRDataArray;
using SRDataArrayPtr = SRPtr<SRDataArray>;
struct SRBlobSpan;
class SRNameList;

/// The plain part of a value: it owns nothing by itself and can be moved byte by byte. It has only 16 bytes,
/// as data may need one of these per byte.
struct SRDataValue
{
    union Payload {
        bool boolean;
        double number;  ///< of a date: milliseconds since 1970
        long long integer;
        char* text;  ///< block of the string pool
        SRDataArray* array;
        SRMemory* memory;  ///< of a blob that begins with its memory; null for a blob without memory
        SRBlobSpan* span;  ///< of any other blob
    };

    static constexpr unsigned char kNoHint = 6;

    unsigned char kind = kUndefinedType;
    unsigned char amf3Hint = kNoHint;  ///< AMF3 marker that the value was read with or shall be written with
    bool hasSpan = false;              ///< a blob's payload is a span
    union {
        int timeZone = 0;  ///< of a date
        unsigned blobEnd;  ///< of a blob that begins with its memory
    };
    Payload payload{};
};

/// A dynamically typed value. It owns one reference on its text, its array or its blob's memory, which a copy
/// shares. Texts never change.
///
/// Texts are UTF-8 by convention, but may hold any bytes of a file. What makes or copies a value
/// may throw SROutOfMemory. Several threads may read a value or copy it; one that changes it must be alone.
class SRData : public SRDataValue
{
public:
    SRData() {}
    explicit SRData(bool value) { init(value); }
    explicit SRData(double value) { init(value); }
    explicit SRData(int value) { init(value); }
    explicit SRData(unsigned value) { init(value); }
    explicit SRData(long long value) { init(value); }
    explicit SRData(const char* text) { init(text); }
    explicit SRData(const wchar_t* text) { init(text); }
    explicit SRData(const SRMBString& text) { init(text); }
    explicit SRData(const SRBuffer& buffer) { init(buffer); }
    SRData(const SRTime& time, int zone) { init(time, zone); }
    SRData(const SRDataArrayPtr& array, int arrayKind) { init(array.get(), arrayKind); }
    SRData(const SRData& other) : SRDataValue(other) { acquire(*this); }
    SRData(SRData&& other) noexcept { swap(other); }
    ~SRData() { clear(); }
    SRData& operator=(const SRData& other)
    {
        copy(other);
        return *this;
    }
    SRData& operator=(SRData&& other) noexcept
    {
        swap(other);
        return *this;
    }

    /// Makes an object of raw memory an undefined value, without releasing anything.
    void fieldInit();

    // Each first makes the value undefined. Texts end at their first zero character.
    void init(bool value);
    void init(double value);
    void init(int value) { init(static_cast<double>(value)); }
    void init(unsigned value);
    void init(long long value);
    void init(const char* text);
    void init(const wchar_t* text);
    void init(const SRMBString& text);  ///< shares a text that is counted
    void init(const SRBuffer& buffer);
    void init(const SRTime& time, int zone);  ///< a date; zone is stored as it is, by convention minutes
    /// Takes a reference on the array. A null array, and a kind that is no array kind (reported), leave the
    /// value undefined.
    void init(SRDataArray* array, int arrayKind);
    void initNull();
    /// A string (or, with kXMLType, XML) of the first n bytes, up to their first zero byte.
    void initText(const char* text, std::size_t n, SRDataKind textKind = kStringType);
    void setDate(double ms, int zone);  ///< ms since 1970
    /// Takes over a text that was allocated as an array.
    void setAndEatString(char* text);

    /// Strong: on failure (SROutOfMemory) the value is unchanged.
    void copy(const SRDataValue& other);
    void clear() noexcept;
    void swap(SRDataValue& other) noexcept;

    bool isArrayKind() const { return isArrayKind(kind); }
    static bool isArrayKind(int kind);
    bool isTextKind() const { return kind == kStringType || kind == kXMLType; }

    // Conversions: a kind that has none gives the neutral value. Numbers beyond the target's range become its
    // nearest value, and not-a-number becomes 0.
    explicit operator bool() const { return kind == kBoolType && payload.boolean; }
    explicit operator double() const;
    explicit operator float() const;
    explicit operator int() const;
    explicit operator short() const { return static_cast<short>(static_cast<int>(*this)); }
    explicit operator unsigned() const;
    explicit operator long long() const;
    /// The array, which stays the value's; null for kinds that are no arrays.
    explicit operator SRDataArray*() const { return isArrayKind() ? payload.array : nullptr; }
    /// The text, which stays the value's; "" for kinds that are no texts.
    explicit operator const char*() const;
    /// The same with its length.
    std::string_view textView() const;
    /// The blob, sharing its memory; for other kinds reported and empty.
    explicit operator SRBuffer() const;
    /// Milliseconds since 1970; 0 for kinds that are no dates.
    double getDate() const { return kind == kDateType ? payload.number : 0; }
    /// As the date has it; 0 for other kinds.
    int getTimeZone() const { return kind == kDateType ? timeZone : 0; }
    /// Length of a string in bytes; -1 for other kinds.
    int stringLen() const;

    /// Makes out a string: the readable form of this value.
    void toString(SRData& out) const;
    /// The same as a string. Arrays are rendered as "{name: value, name: value}", to at most maxBytes and
    /// with "{...}" for an array inside itself or too deep.
    SRMBString toText(std::size_t maxBytes = kMaxTextBytes) const;

    /// Longest rendering of an array: references can make its full form exponentially long.
    static constexpr std::size_t kMaxTextBytes = 1U << 20;
    /// Deepest nesting that is rendered.
    static constexpr unsigned kMaxTextDepth = 256;

    /// -1, 0, 1 as a is below, equal to or above b; 2 when they cannot be compared. Arrays compare by
    /// identity.
    static int compare(const SRData& a, const SRData& b);

private:
    /// Gives a bytewise copy of a value its own reference. On failure (SROutOfMemory) the copy owns nothing.
    static void acquire(SRDataValue& value);
};

/// An ordered list of named values: objects and arrays of every sort. Duplicate names are kept; names are
/// looked up ignoring the case of ASCII letters. Several threads may read one array, but not while another
/// one changes it.
///
/// Data may have an array per two bytes and a value per byte, so an array without entries has 40 bytes, and
/// names take none while they are implied: the first entries may be named by their index in decimal, or by a
/// list that many arrays share. All functions that allocate throw SROutOfMemory and leave the array as it
/// was.
///
/// Releasing an array never recurses, however deep its values are nested. Arrays that contain themselves keep
/// themselves alive: whoever builds such a circle breaks it (a reader of serialized data does so at its end).
class SRDataArray : public SRObject
{
public:
    /// Room for the name of an index.
    using NameBuffer = std::array<char, 12>;

    SRDataArray() = default;
    /// Empty, with room for capacity entries; a capacity below 1 is reported.
    explicit SRDataArray(int capacity);
    /// Empty but for the list's first value, if it has one. The first entries appended without a name take
    /// the list's names.
    explicit SRDataArray(const SRPtr<SRNameList>& names);
    /// Copies the entries; nested arrays are shared.
    SRDataArray(const SRDataArray& other);
    ~SRDataArray() override;
    /// Takes the kind and sets every entry of other by index; surplus entries of this array stay.
    SRDataArray& operator=(const SRDataArray& other);

    int _release() const override;

    /// Makes room for n entries in all.
    void reserve(int n);
    int getSize() const { return static_cast<int>(m_size); }
    bool empty() const { return m_size == 0; }

    /// The kind that the array stands for. For a carrier of an AMF3 value: 9 array, 10 object, 11 date, 12
    /// byte array, 15 XML. 6 on construction.
    int getKind() const { return m_kind; }
    void setKind(int kind) { m_kind = kind; }

    /// First index from start on with that name; -1 when there is none or name is null.
    int indexOf(const char* name, int start = 0) const;
    /// The value under that name. When there is none: an undefined value that is not part of the array; the
    /// next miss on the same thread makes it undefined again.
    SRData& operator[](const char* name);
    const SRData& operator[](const char* name) const;

    /// Entry i, for which the array grows when needed. A negative index gives a value that is not part of it,
    /// as above. Where names are implied, asking for one counts as a change of it.
    SRMBString& getPropertyName(int i);
    SRData& getPropertyValue(int i);
    /// Entry i; the empty name and the undefined value when there is none.
    SRMBString getPropertyNameConst(int i) const;
    const SRData& getPropertyValueConst(int i) const;
    /// The name without a copy: the array's own or in buffer.
    std::string_view getNameView(int i, NameBuffer& buffer) const;

    /// Sets entry i, for which the array grows when needed (a negative index: nothing happens). Returns 1.
    int setValue(int i, const SRMBString& name, const SRData& value);
    /// The name is the one implied for the next appended entry.
    bool impliesNext(std::string_view name) const
    {
        return m_implied == m_size && !m_link.names && isImpliedName(m_size, name);
    }
    /// Appends an entry.
    void append(SRMBString&& name, SRData&& value);
    /// Appends an entry under its implied name: the list's next, or its index.
    void append(SRData&& value);
    void erase(int i);

    /// Same kind and same names in the same order; values are not looked at.
    bool equals(const SRDataArray& other) const;

    /// The readable form, see SRData::toText.
    SRMBString toText(std::size_t maxBytes = SRData::kMaxTextBytes) const;
    /// The same piece by piece, for any length. write must not keep a piece.
    void writeText(std::size_t maxBytes, const std::function<void(std::string_view piece)>& write) const;

    /// True when some array reached from this one contains itself.
    bool containsCircle() const;

private:
    /// The header of the memory: values follow, capacity slots of them, then the same number of slots for
    /// names when names is set. The name slots of the first m_implied entries are empty memory.
    struct Block
    {
        unsigned capacity;
        bool names;

        SRData* values() { return reinterpret_cast<SRData*>(this + 1); }
        SRMBString* nameSlots() { return reinterpret_cast<SRMBString*>(values() + capacity); }
    };
    union Link {
        SRNameList* names;              ///< counted; null: implied names are indices
        const SRDataArray* nextToFree;  ///< once nobody holds the array
    };

    bool isEntry(int i) const { return i >= 0 && static_cast<unsigned>(i) < m_size; }
    Block* block() const { return m_block.load(std::memory_order_acquire); }
    void setBlock(Block* block) { m_block.store(block, std::memory_order_release); }
    const SRData& valueAt(unsigned i) const;
    std::string_view impliedName(unsigned i, NameBuffer& buffer) const;
    bool isImpliedName(unsigned i, std::string_view name) const;
    Block& ownBlock();
    /// Room for exactly capacity entries, unless there is more; with names also for these.
    Block& makeRoom(unsigned capacity, bool names);
    /// With room to grow.
    Block& makeRoomFor(unsigned size, bool names);
    void makeNamesExplicit();
    void dropNames() const noexcept;
    void releaseEntries() noexcept;
    /// False for a negative index.
    bool growTo(int i);
    SRData& getPropertyOrUndefined(int i);

    int m_kind = kUndefinedType;
    unsigned m_size = 0;
    unsigned m_implied = 0;  ///< that many first entries have no name of their own
    /// Null while there are no entries, or only the one that the list gives.
    mutable std::atomic<Block*> m_block{nullptr};
    mutable Link m_link{nullptr};
};
