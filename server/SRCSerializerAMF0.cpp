// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"
#include "server/SRCSerializerScopes.h"
#include "util/SRException.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace {

constexpr int kLastMarker = kInt64Type;
// References to the object table have 16 bits in AMF0.
constexpr int kMaxReference = 0xFFFF;

}  // namespace

struct SRCSerializer::AMF0Markers
{
    using S = SRCSerializer;
    static constexpr std::array<MarkerRow, kLastMarker + 1> makeTable()
    {
        std::array<MarkerRow, kLastMarker + 1> rows{};
        rows[kNumberType] = {&S::readNumber, L"while reading number type"};
        rows[kBoolType] = {&S::readBoolean, L"while reading boolean type"};
        rows[kStringType] = {&S::readString, L"while processing string type"};
        rows[kObjectType] = {&S::ProcessObjectType, L"while processing object data type"};
        rows[kMovieClipType] = {&S::readString, L"while processing string type"};
        rows[kNullType] = {&S::readNull, nullptr};
        rows[kUndefinedType] = {&S::readUndefined, nullptr};
        rows[kReferenceType] = {&S::readReference, L"while processing reference type"};
        rows[kArrayType] = {&S::readECMAArray, L"while processing array type"};
        rows[kObjectEndType] = {&S::readNothing, nullptr};
        rows[kStrictArrayType] = {&S::readStrictArray, L"while processing strict array type"};
        rows[kDateType] = {&S::readDate, L"while processing date type"};
        rows[kLongStringType] = {&S::readString, L"while processing string type"};
        rows[kUnsupportedType] = {&S::readUndefined, nullptr};
        rows[kXMLType] = {&S::readString, L"while processing xml type"};
        rows[kTypedObjectType] = {&S::ProcessObjectType, L"while processing object data type"};
        rows[kAvmPlusObjectType] = {&S::readAMF3Switch, L"while processing AMF3 object data type"};
        rows[kBlobType] = {&S::readBlob, L"while processing blob data type"};
        rows[kInt64Type] = {&S::readInt64, L"while reading 64 bit integer type"};
        return rows;
    }

    /// The row of a marker; null when the marker does not exist.
    static const MarkerRow* row(int marker)
    {
        static constexpr std::array<MarkerRow, kLastMarker + 1> kRows = makeTable();
        if (marker > kLastMarker || !kRows[static_cast<unsigned>(marker)].read)
            return nullptr;
        return &kRows[static_cast<unsigned>(marker)];
    }
};

struct SRCSerializer::PopOpen
{
    std::vector<SRDataArray*>& open;
    ~PopOpen() { open.pop_back(); }
};

// Reading.

template <typename Read>
int SRCSerializer::unlessStarved(const Read& read)
{
    return krx::util::unlessOutOfMemory(read, [this] {
        m_readStarved = true;
        return static_cast<int>(kObjectEndType);
    });
}

int SRCSerializer::readVar(SRData& value, std::string_view* name)
{
    DeferredThrow deferred(*this);
    const int marker = unlessStarved([&] { return readVarInside(value, name); });
    deferred.finish();
    return marker;
}

int SRCSerializer::readVarInside(SRData& value, std::string_view* name)
{
    const TraceScope scope(*this, L"while processing script variable");
    if (name)
        readName(*name);
    const int marker = GetByte();
    const Nesting nesting(*this);
    if (nesting.isTooDeep())
        HandleBadData(getPosition(), L"while processing script variable,values are found nested too deep");
    const MarkerRow* const row = isBad() ? nullptr : existingRow(marker);
    if (row)
        readWith(*row, value, marker);
    return isBad() ? static_cast<int>(kObjectEndType) : marker;
}

const SRCSerializer::MarkerRow* SRCSerializer::existingRow(int marker)
{
    const MarkerRow* const row = AMF0Markers::row(marker);
    if (!row)
        raiseBadData();
    return row;
}

void SRCSerializer::readName(std::string_view& name)
{
    const TraceScope scope(*this, L"while processing name");
    std::string_view text;
    if (readText(kShortText, text))
        name = text.substr(0, text.find('\0'));
}

void SRCSerializer::readNothing(SRData&, int) {}

void SRCSerializer::readNumber(SRData& value, int)
{
    value.init(GetDouble());
}

void SRCSerializer::readBoolean(SRData& value, int)
{
    value.init(GetByte() == 1);
}

void SRCSerializer::readInt64(SRData& value, int)
{
    value.init(GetINT64());
}

void SRCSerializer::readNull(SRData& value, int)
{
    value.initNull();
}

void SRCSerializer::readUndefined(SRData& value, int)
{
    value.clear();
}

void SRCSerializer::readString(SRData& value, int marker)
{
    const bool isLong = marker == kLongStringType || marker == kXMLType;
    std::string_view text;
    if (readText(isLong ? kLongText : kShortText, text) && chargeText(text.size()))
        value.initText(text.data(), text.size(), marker == kXMLType ? kXMLType : kStringType);
}

void SRCSerializer::readDate(SRData& value, int)
{
    const double ms = GetDouble();
    const int timeZone = GetWord();
    value.setDate(ms, timeZone);
}

void SRCSerializer::readBlob(SRData& value, int)
{
    const unsigned length = GetDWord();
    if (length > getRemaining()) {
        HandleBadData(
            getPosition(),
            L"while serializing the blob type,length of blob data is found longer than remaining bytes");
        return;
    }
    readBlobBytes(value, length);
}

void SRCSerializer::readBlobBytes(SRData& value, unsigned length)
{
    if (length == 0) {
        value.init(SRBuffer());
        return;
    }
    const unsigned char* const bytes = GetData(length);
    if (!chargeAllocated(sizeof(SRMemory)) || !chargeAllocated(length))
        return;
    SRBuffer buffer(length);
    std::memcpy(buffer.base(), bytes, length);
    buffer.memory()->setUsed(length);
    buffer.setEnd(length);
    value.init(buffer);
}

void SRCSerializer::readReference(SRData& value, int)
{
    const unsigned index = GetWord();
    if (!isBad() && index < m_objects.size() && m_objects[index].kind != kUndefinedType)
        shareTableEntry(value, index, kArrayType);
}

void SRCSerializer::ProcessObjectType(SRData& value, int marker)
{
    const SRDataArrayPtr array = newArray(marker);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), marker);
    if (marker == kTypedObjectType) {
        std::string_view className;
        if (!readText(kShortText, className))
            return;
        chargeText(className.size());
        chargeNamed(*array);
        SRData text;
        text.initText(className.data(), className.size());
        array->append(SRMBString::counted(SRNameList::kClassNameEntry), std::move(text));
    }
    readEntries(*array);
}

void SRCSerializer::readECMAArray(SRData& value, int)
{
    // The count is a hint that writers need not keep to.
    GetDWord();
    const SRDataArrayPtr array = newArray(kArrayType);
    const Building building(*this, array.get(), Building::Table::kLeave);
    value.init(array.get(), kArrayType);
    readEntries(*array);
}

void SRCSerializer::readStrictArray(SRData& value, int)
{
    const unsigned count = GetDWord();
    if (count > getRemaining()) {
        HandleBadData(
            getPosition(),
            L"while serializing the array length,length of array is found longer than remaining bytes");
        return;
    }
    const SRDataArrayPtr array = newArray(kStrictArrayType);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), kArrayType);
    Promise promise(*this, count);
    array->reserve(promise.room());
    charge(count > 0 ? kEntriesBytes : 0);
    while (promise.takeOne()) {
        SRData element;
        if (readVar(element, nullptr) == kObjectEndType || !charge(sizeof(SRData)))
            return;
        array->append(std::move(element));
    }
}

void SRCSerializer::readAMF3Switch(SRData& value, int)
{
    readAMF3Var(value);
}

bool SRCSerializer::chargeNamed(const SRDataArray& array)
{
    return charge(sizeof(SRData) + sizeof(SRMBString) + (array.empty() ? kEntriesBytes : 0));
}

void SRCSerializer::readEntries(SRDataArray& array)
{
    for (;;) {
        std::string_view name;
        SRData value;
        if (readVar(value, &name) == kObjectEndType || !chargeNamed(array))
            return;
        if (array.impliesNext(name))
            array.append(std::move(value));
        else if (chargeText(name.size()))
            array.append(SRMBString::counted(name), std::move(value));
    }
}

// Skipping.

int SRCSerializer::skipVar()
{
    DeferredThrow deferred(*this);
    const int marker = unlessStarved([&] { return skipVarInside(); });
    deferred.finish();
    return marker;
}

int SRCSerializer::skipVarInside()
{
    if (atEnd())
        return kObjectEndType;
    const Nesting nesting(*this);
    if (nesting.isTooDeep()) {
        HandleBadData(getPosition(), L"while processing script variable,values are found nested too deep");
        return kObjectEndType;
    }
    const int marker = skipMarked();
    return isBad() ? static_cast<int>(kObjectEndType) : marker;
}

int SRCSerializer::skipMarked()
{
    const int marker = GetByte();
    if (!existingRow(marker))
        return marker;
    switch (marker) {
        case kNumberType:
        case kInt64Type:
            GetData(sizeof(double));
            break;
        case kBoolType:
            GetByte();
            break;
        case kReferenceType:
            GetWord();
            break;
        case kDateType:
            GetData(sizeof(double) + sizeof(unsigned short));
            break;
        case kStringType:
        case kMovieClipType:
            GetData(GetWord());
            break;
        case kLongStringType:
        case kXMLType:
        case kBlobType: {
            const unsigned length = GetDWord();
            if (length > getRemaining())
                HandleBadData(getPosition(),
                              L"while parsing the long string type,length of string is found greater "
                              L"than remaining bytes");
            GetData(length);
            break;
        }
        case kTypedObjectType:
            joinTableEmpty(marker);
            GetData(GetWord());
            skipEntries();
            break;
        case kArrayType:
            GetDWord();
            skipEntries();
            break;
        case kObjectType:
            joinTableEmpty(marker);
            skipEntries();
            break;
        case kStrictArrayType:
            skipElements();
            break;
        case kAvmPlusObjectType: {
            // Later values may refer to its texts and objects, so it takes its places in the tables.
            SRData dropped;
            readAMF3Var(dropped);
            break;
        }
        default:
            break;
    }
    return marker;
}

void SRCSerializer::skipEntries()
{
    do
        GetData(GetWord());
    while (!isBad() && skipVarInside() != kObjectEndType);
}

void SRCSerializer::skipElements()
{
    const unsigned count = GetDWord();
    if (count > getRemaining()) {
        HandleBadData(
            getPosition(),
            L"while parsing the strict array type,length of array is found greater than remaining bytes");
        return;
    }
    joinTableEmpty(kStrictArrayType);
    for (unsigned i = 0; i < count; ++i) {
        if (skipVarInside() == kObjectEndType)
            return;
    }
}

// Writing.

int SRCSerializer::writeVar(const SRData& value, const std::string_view* name)
{
    // After a failure all open values are closed: trying on could take for ever.
    if (m_depth == 0)
        m_writeBroken = false;
    else if (m_writeBroken)
        return kObjectEndType;
    WriteMark mark(*this);
    try {
        const Nesting nesting(*this);
        if (nesting.isTooDeep())
            throw Unwritable();
        if (name)
            writeName(*name);
        return writeMarked(value);
    } catch (const Unwritable&) {
    } catch (const OutputLimitReached&) {
    } catch (const SROutOfMemory&) {
        m_writeStarved = true;
    } catch (const std::bad_alloc&) {
        m_writeStarved = true;
    }
    return mark.goBack();
}

void SRCSerializer::writeName(std::string_view name)
{
    if (name.size() > kMaxShortText)
        throw Unwritable();
    PutString(name, kShortText);
}

int SRCSerializer::markerFor(const SRData& value) const
{
    const bool isAMF3 = getEncoding() == kAMF3;
    const auto ownOrReference = [&]() -> int {
        const int index = findInTable(value);
        return index >= 0 && index <= kMaxReference ? static_cast<int>(kReferenceType) : value.kind;
    };
    switch (value.kind) {
        case kStringType:
            return value.textView().size() > kMaxShortText ? kLongStringType : kStringType;
        case kNumberType:
        case kInt64Type:
            return kNumberType;
        case kNullType:
        case kUndefinedType:
        case kBoolType:
        case kAvmPlusObjectType:
            return value.kind;
        case kObjectType:
        case kTypedObjectType:
            return ownOrReference();
        case kArrayType:
        case kStrictArrayType:
            return isAMF3 ? static_cast<int>(kAvmPlusObjectType) : ownOrReference();
        case kDateType:
        case kXMLType:
        case kBlobType:
            return isAMF3 ? static_cast<int>(kAvmPlusObjectType) : value.kind;
        default:
            return kUnsupportedType;
    }
}

int SRCSerializer::writeMarked(const SRData& value)
{
    const int marker = markerFor(value);
    PutByte(static_cast<unsigned char>(marker));
    switch (marker) {
        case kStringType:
        case kLongStringType:
        case kXMLType:
            PutString(value.textView(), marker == kStringType ? kShortText : kLongText);
            break;
        case kNumberType:
            PutDouble(static_cast<double>(value));
            break;
        case kBoolType:
            PutByte(value.payload.boolean ? 1 : 0);
            break;
        case kReferenceType:
            PutWord(static_cast<unsigned short>(findInTable(value)));
            break;
        case kObjectType:
        case kTypedObjectType:
            writeObject(*value.payload.array, marker);
            break;
        case kArrayType:
            writeECMAArray(*value.payload.array);
            break;
        case kStrictArrayType:
            writeStrictArray(*value.payload.array);
            break;
        case kDateType:
            PutDouble(value.getDate());
            PutWord(static_cast<unsigned short>(value.getTimeZone()));
            break;
        case kBlobType: {
            const SRBuffer blob(value);
            PutDWord(blob.length());
            PutData(blob.data(), blob.length());
            break;
        }
        case kAvmPlusObjectType:
            writeAMF3Var(value);
            break;
        default:
            break;
    }
    return marker;
}

int SRCSerializer::classNameOf(const SRDataArray& array, std::string_view& name)
{
    name = kAnonymousClass;
    SRDataArray::NameBuffer buffer;
    if (array.getNameView(0, buffer) != SRNameList::kClassNameEntry)
        return 0;
    const SRData& value = array.getPropertyValueConst(0);
    name = value.kind == kStringType ? value.textView() : std::string_view();
    return 1;
}

void SRCSerializer::writeObject(SRDataArray& array, int marker)
{
    joinTable(&array);
    int first = 0;
    if (marker == kTypedObjectType) {
        std::string_view className;
        first = classNameOf(array, className);
        writeName(className);
    }
    writeEntries(array, first);
}

void SRCSerializer::writeECMAArray(SRDataArray& array)
{
    // No reference ends a circle of ECMA arrays, which the table does not hold.
    if (std::find(m_open.begin(), m_open.end(), &array) != m_open.end())
        throw Unwritable();
    m_open.push_back(&array);
    const PopOpen pop{m_open};
    PutDWord(0);
    writeEntries(array, 0);
}

void SRCSerializer::writeStrictArray(SRDataArray& array)
{
    joinTable(&array);
    const int size = array.getSize();
    PutDWord(static_cast<unsigned>(size));
    for (int i = 0; i < size; ++i) {
        // The count is written: none may be missing.
        if (writeVar(array.getPropertyValueConst(i), nullptr) == kObjectEndType)
            throw Unwritable();
    }
}

void SRCSerializer::writeEntries(const SRDataArray& array, int first)
{
    SRDataArray::NameBuffer buffer;
    for (int i = first; i < array.getSize(); ++i) {
        const std::string_view name = array.getNameView(i, buffer);
        if (writeVar(array.getPropertyValueConst(i), &name) == kObjectEndType)
            break;
    }
    PutString(std::string_view(), kShortText);
    PutByte(kObjectEndType);
}
