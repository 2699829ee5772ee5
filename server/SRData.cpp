// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRData.h"

#include "util/SRException.h"
#include "util/SRStrUtil.h"
#include "util/SRStringPool.h"
#include "util/krxassert.h"
#include "util/typeconvertor.h"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

static_assert(std::is_trivially_copyable_v<SRDataValue> && sizeof(SRData) == sizeof(SRDataValue));
static_assert(sizeof(SRData) == 16);

/// A part of a memory that does not begin with it.
struct SRBlobSpan : SRObject
{
    SRMemoryPtr memory;
    unsigned start = 0;
    unsigned end = 0;
};

namespace {

constexpr char kDataPlace[] = "server/SRCSerializer";
constexpr int kArrayKindLine = 2120;
constexpr int kBlobLine = 2372;

SRStringPool& pool()
{
    return SRStrUtil::poolInstance();
}

// value cut to an integer of type T: the nearest one when T cannot hold it, 0 for not-a-number.
template <typename T>
T truncated(double value)
{
    if (std::isnan(value))
        return 0;
    // The upper limit may be rounded up on its way to double, hence >=.
    if (value >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    return static_cast<T>(value);
}

template <typename T>
int order(const T& a, const T& b)
{
    return std::less<T>()(a, b) ? -1 : std::less<T>()(b, a) ? 1 : 0;
}

}  // namespace

bool SRData::isArrayKind(int kind)
{
    switch (kind) {
        case kObjectType:
        case kArrayType:
        case kStrictArrayType:
        case kTypedObjectType:
        case kAvmPlusObjectType:
            return true;
        default:
            return false;
    }
}

void SRData::fieldInit()
{
    static_cast<SRDataValue&>(*this) = SRDataValue();
}

void SRData::clear() noexcept
{
    if (isTextKind()) {
        pool().release(payload.text);
    } else if (isArrayKind()) {
        payload.array->_release();
    } else if (kind == kBlobType && hasSpan) {
        payload.span->_release();
    } else if (kind == kBlobType && payload.memory) {
        payload.memory->_release();
    }
    fieldInit();
}

void SRData::swap(SRDataValue& other) noexcept
{
    std::swap(static_cast<SRDataValue&>(*this), other);
}

void SRData::init(bool value)
{
    clear();
    payload.boolean = value;
    kind = kBoolType;
}

void SRData::init(double value)
{
    clear();
    payload.number = value;
    kind = kNumberType;
}

void SRData::init(unsigned value)
{
    init(static_cast<double>(value));
}

void SRData::init(long long value)
{
    clear();
    payload.integer = value;
    kind = kInt64Type;
}

void SRData::initText(const char* text, std::size_t n, SRDataKind textKind)
{
    if (n > 0) {
        if (const void* zero = std::memchr(text, 0, n))
            n = static_cast<std::size_t>(static_cast<const char*>(zero) - text);
    }
    if (n > SRStringPool::kMaxLength)
        throw SROutOfMemory();
    char* const block = pool().getCounted(text, static_cast<int>(n));
    clear();
    payload.text = block;
    kind = textKind;
}

void SRData::init(const char* text)
{
    initText(text, text ? std::strlen(text) : 0);
}

void SRData::init(const wchar_t* text)
{
    init(SRString(text).toMultiByte());
}

void SRData::init(const SRMBString& text)
{
    const bool isWhole = std::memchr(text.c_str(), 0, text.size()) == nullptr;
    if (!isWhole || SRStringPool::type(text.c_str()) != SRStringPool::kCounted) {
        initText(text.c_str(), text.size());
        return;
    }
    char* const block = pool().share(const_cast<char*>(text.c_str()));
    clear();
    payload.text = block;
    kind = kStringType;
}

void SRData::setAndEatString(char* text)
{
    const std::unique_ptr<char[]> owned(text);
    init(text);
}

void SRData::init(SRDataArray* array, int arrayKind)
{
    if (array)
        array->_use();
    clear();
    if (!array)
        return;
    payload.array = array;
    if (isArrayKind(arrayKind)) {
        kind = static_cast<unsigned char>(arrayKind);
    } else {
        krx::util::assertFailed(kDataPlace, kArrayKindLine);
        payload = Payload{};
        array->_release();
    }
}

void SRData::init(const SRBuffer& buffer)
{
    SRMemory* const memory = buffer.memory().get();
    SRBlobSpan* span = nullptr;
    if (memory && buffer.getStart() > 0) {
        span = new (std::nothrow) SRBlobSpan;
        if (!span)
            throw SROutOfMemory();
        span->memory = buffer.memory();
        span->start = buffer.getStart();
        span->end = buffer.getEnd();
        span->_use();
    } else if (memory) {
        memory->_use();
    }
    clear();
    kind = kBlobType;
    hasSpan = span != nullptr;
    if (span)
        payload.span = span;
    else
        payload.memory = memory;
    blobEnd = memory && !span ? buffer.getEnd() : 0;
}

void SRData::init(const SRTime& time, int zone)
{
    constexpr double kMsPerSecond = 1000;
    setDate(time.getSeconds() * kMsPerSecond, zone);
}

void SRData::initNull()
{
    clear();
    kind = kNullType;
}

void SRData::setDate(double ms, int zone)
{
    clear();
    payload.number = ms;
    timeZone = zone;
    kind = kDateType;
}

void SRData::acquire(SRDataValue& value)
{
    if (value.kind == kStringType || value.kind == kXMLType)
        value.payload.text = pool().share(value.payload.text);
    else if (isArrayKind(value.kind))
        value.payload.array->_use();
    else if (value.kind == kBlobType && value.hasSpan)
        value.payload.span->_use();
    else if (value.kind == kBlobType && value.payload.memory)
        value.payload.memory->_use();
}

void SRData::copy(const SRDataValue& other)
{
    if (this == &other)
        return;
    SRDataValue fresh = other;
    acquire(fresh);
    clear();
    swap(fresh);
}

SRData::operator double() const
{
    constexpr double kMsPerSecond = 1000;
    switch (kind) {
        case kNumberType:
            return payload.number;
        case kBoolType:
            return payload.boolean ? 1 : 0;
        case kStringType:
            return std::strtod(payload.text, nullptr);
        case kDateType:
            return payload.number / kMsPerSecond;
        case kInt64Type:
            return static_cast<double>(payload.integer);
        default:
            return 0;
    }
}

SRData::operator float() const
{
    using Limits = std::numeric_limits<float>;
    const double value(*this);
    if (std::abs(value) > Limits::max())
        return value > 0 ? Limits::infinity() : -Limits::infinity();
    return static_cast<float>(value);
}

SRData::operator int() const
{
    switch (kind) {
        case kNumberType:
            return truncated<int>(payload.number);
        case kBoolType:
            return payload.boolean ? 1 : 0;
        case kStringType:
            return static_cast<int>(std::strtol(payload.text, nullptr, 10));
        case kInt64Type:
            return krx::util::convertInteger<int>(payload.integer);
        default:
            return 0;
    }
}

SRData::operator unsigned() const
{
    switch (kind) {
        case kNumberType:
            return static_cast<unsigned>(truncated<long long>(payload.number));
        case kBoolType:
            return payload.boolean ? 1 : 0;
        case kStringType:
            return static_cast<unsigned>(std::strtol(payload.text, nullptr, 10));
        case kInt64Type:
            return krx::util::convertInteger<unsigned>(payload.integer);
        default:
            return 0;
    }
}

SRData::operator long long() const
{
    switch (kind) {
        case kNumberType:
            return truncated<long long>(payload.number);
        case kBoolType:
            return payload.boolean ? 1 : 0;
        case kStringType:
            return truncated<long long>(std::strtod(payload.text, nullptr));
        case kInt64Type:
            return payload.integer;
        default:
            return 0;
    }
}

SRData::operator const char*() const
{
    return isTextKind() ? payload.text : SRStringPool::g_chNull;
}

std::string_view SRData::textView() const
{
    if (!isTextKind())
        return {};
    return {payload.text, static_cast<std::size_t>(SRStringPool::length(payload.text))};
}

SRData::operator SRBuffer() const
{
    if (kind != kBlobType) {
        krx::util::assertFailed(kDataPlace, kBlobLine);
        return SRBuffer();
    }
    if (hasSpan)
        return SRBuffer(payload.span->memory, payload.span->start, payload.span->end);
    return payload.memory ? SRBuffer(SRMemoryPtr(payload.memory), 0, blobEnd) : SRBuffer();
}

int SRData::stringLen() const
{
    return kind == kStringType ? SRStringPool::length(payload.text) : -1;
}

void SRData::toString(SRData& out) const
{
    if (!isTextKind()) {
        out.init(toText());
        return;
    }
    char* const block = pool().share(payload.text);
    out.clear();
    out.payload.text = block;
    out.kind = kStringType;
}

SRMBString SRData::toText(std::size_t maxBytes) const
{
    switch (kind) {
        case kNumberType:
        case kInt64Type:
            return SRMBString::toString(static_cast<double>(*this));
        case kBoolType:
            return SRMBString(payload.boolean ? "true" : "false");
        case kStringType:
        case kXMLType:
            return SRMBString(textView());
        default:
            return isArrayKind() ? payload.array->toText(maxBytes) : SRMBString();
    }
}

int SRData::compare(const SRData& a, const SRData& b)
{
    constexpr int kIncomparable = 2;
    if (a.kind != b.kind)
        return kIncomparable;
    switch (a.kind) {
        case kStringType:
        case kXMLType:
            return order(std::strcmp(a.payload.text, b.payload.text), 0);
        case kNumberType:
            return order(a.payload.number, b.payload.number);
        case kBoolType:
            return order(a.payload.boolean, b.payload.boolean);
        case kInt64Type:
            return order(a.payload.integer, b.payload.integer);
        case kDateType:
            if (a.timeZone != b.timeZone)
                return kIncomparable;
            return order(a.payload.number, b.payload.number);
        case kNullType:
        case kUndefinedType:
            return 0;
        default:
            return isArrayKind(a.kind) ? order(a.payload.array, b.payload.array) : kIncomparable;
    }
}
