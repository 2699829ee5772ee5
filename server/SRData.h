// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRBuffer.h"
#include "util/SRObject.h"
#include "util/SRString.h"
#include "util/SRTime.h"

#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

/// Kinds of values. The codes are those of the AMF0 type markers, with extensions from 32 on. A value never
/// has the kinds 4, 7, 9, 12 and 13: these are markers only.
enum SRDataKind : unsigned char
{
    kNumberType = 0,
    kBoolType = 1,
    kStringType = 2,
    kObjectType = 3,
    kMovieClipType = 4,
    kNullType = 5,
    kUndefinedType = 6,
    kReferenceType = 7,
    kArrayType = 8,  ///< ECMA array
    kObjectEndType = 9,
    kStrictArrayType = 10,
    kDateType = 11,
    kLongStringType = 12,
    kUnsupportedType = 13,
    kXMLType = 15,
    kTypedObjectType = 16,    ///< entry 0, "constructor", holds the class name
    kAvmPlusObjectType = 17,  ///< an AMF3 value that is carried in an array
    kBlobType = 32,
    kInt64Type = 34,
};

class SRDataArray;
using SRDataArrayPtr = SRPtr<SRDataArray>;

/// The plain part of a value: it owns nothing by itself and can be moved about byte by byte.
struct SRDataValue
{
    struct Date
    {
        double ms;  ///< since 1970
        int timeZone;
    };
    struct Blob
    {
        SRMemory* memory;
        unsigned start;
        unsigned end;
    };
    union Payload {
        Date date;
        Blob blob;
        bool boolean;
        double number;
        long long integer;
        char* text;  ///< block of the string pool
        SRDataArray* array;
    };

    static constexpr unsigned char kNoHint = 6;

    unsigned char kind = kUndefinedType;
    unsigned char amf3Hint = kNoHint;  ///< AMF3 marker that the value was read with or shall be written with
    Payload payload{};
};

/// A dynamically typed value. It owns its text, and one reference on its array or on its blob's memory; a
/// copy has its own text and shares the array and the memory.
class SRData : public SRDataValue
{
public:
    SRData() = default;
    explicit SRData(bool value) { init(value); }
    explicit SRData(double value) { init(value); }
    explicit SRData(int value) { init(value); }
    explicit SRData(unsigned value) { init(value); }
    explicit SRData(long long value) { init(value); }
    explicit SRData(const char* text) { init(text); }
    explicit SRData(const wchar_t* text) { init(text); }
    explicit SRData(const SRMBString& text) { init(text); }
    explicit SRData(const SRBuffer& buffer) { init(buffer); }
    SRData(const SRTime& time, int timeZone) { init(time, timeZone); }
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
    void init(const SRMBString& text);
    void init(const SRBuffer& buffer);
    void init(const SRTime& time, int timeZone);
    /// Takes a reference on the array. A null array, and a kind that is no array kind (reported), leave the
    /// value undefined.
    void init(SRDataArray* array, int arrayKind);
    void initNull();
    /// A string (or, with kXMLType, XML) of the first n bytes, up to their first zero byte.
    void initText(const char* text, std::size_t n, SRDataKind textKind = kStringType);
    void setDate(double ms, int timeZone);
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
    double getDate() const { return kind == kDateType ? payload.date.ms : 0; }
    int getTimeZone() const { return kind == kDateType ? payload.date.timeZone : 0; }
    /// Length of a string in bytes; -1 for other kinds.
    int stringLen() const;

    /// Makes out a string: the readable form of this value.
    void toString(SRData& out) const;
    /// The same as a string. Arrays are rendered as "{name: value, name: value}", to at most maxBytes and
    /// with
    /// "{...}" where an array lies in itself or too deep.
    SRMBString toText(std::size_t maxBytes = kMaxTextBytes) const;

    /// Longest rendering of an array: references can make its full form exponentially long.
    static constexpr std::size_t kMaxTextBytes = 1U << 20;
    /// Deepest nesting that is rendered.
    static constexpr unsigned kMaxTextDepth = 256;

    /// -1, 0, 1 as a is below, equal to or above b; 2 when they cannot be compared. Arrays compare by
    /// identity.
    static int compare(const SRData& a, const SRData& b);

private:
    /// Gives a bytewise copy of a value its own text or reference. On failure (SROutOfMemory) the copy owns
    /// nothing.
    static void acquire(SRDataValue& value);
};

/// An ordered list of named values: objects and arrays of every sort. Duplicate names are kept; names are
/// looked up ignoring the case of ASCII letters.
///
/// Releasing an array never recurses, however deep its values are nested. Arrays that lie in themselves keep
/// themselves alive: whoever builds such a circle breaks it (a reader of serialized data does so at its end).
class SRDataArray : public SRObject
{
public:
    SRDataArray() = default;
    /// Empty, with room for capacity entries; a capacity below 1 is reported.
    explicit SRDataArray(int capacity);
    /// New vectors; the values in them are copied as values are, so nested arrays are shared.
    SRDataArray(const SRDataArray& other);
    /// Takes the kind and sets every entry of other by index; surplus entries of this array stay.
    SRDataArray& operator=(const SRDataArray& other);

    int _release() const override;

    void reserve(int n);
    int getSize() const;
    bool empty() const { return m_values.empty(); }

    /// The kind that the array stands for. For a carrier of an AMF3 value: 9 array, 10 object, 11 date, 12
    /// byte array, 15 XML. 6 on construction.
    int getKind() const { return m_kind; }
    void setKind(int kind) { m_kind = kind; }

    /// First index from start on with that name; -1 when there is none or name is null.
    int indexOf(const char* name, int start = 0) const;
    /// The value under that name; an undefined value, not part of the array, when there is none.
    SRData& operator[](const char* name);
    const SRData& operator[](const char* name) const;

    /// Entry i, for which the array grows when needed. A negative index gives a value that is not part of it.
    SRMBString& getPropertyName(int i);
    SRData& getPropertyValue(int i);
    /// Entry i; the empty name and the undefined value when there is none.
    const SRMBString& getPropertyNameConst(int i) const;
    const SRData& getPropertyValueConst(int i) const;

    /// Sets entry i, for which the array grows when needed (a negative index: nothing happens). Returns 1.
    int setValue(int i, const SRMBString& name, const SRData& value);
    /// Appends an entry.
    void append(SRMBString&& name, SRData&& value);
    void erase(int i);

    /// Same kind and same names in the same order; values are not looked at.
    bool equals(const SRDataArray& other) const;

    /// The readable form, see SRData::toText.
    SRMBString toText(std::size_t maxBytes = SRData::kMaxTextBytes) const;
    /// The same piece by piece, for any length. write must not keep a piece.
    void writeText(std::size_t maxBytes, const std::function<void(std::string_view piece)>& write) const;

    /// True when some array, reached from this one, lies in itself.
    bool containsCircle() const;

private:
    bool isEntry(int i) const { return i >= 0 && static_cast<std::size_t>(i) < m_values.size(); }
    /// False for a negative index.
    bool growTo(int i);
    SRData& getPropertyOrUndefined(int i);

    std::vector<SRMBString> m_names;
    std::vector<SRData> m_values;
    SRData m_undefined;  ///< handed out where there is no entry
    SRMBString m_noName;
    int m_kind = kUndefinedType;
    mutable const SRDataArray* m_nextToFree = nullptr;
};
