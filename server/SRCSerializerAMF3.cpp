// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRCSerializer.h"
#include "server/SRCSerializerScopes.h"
#include "util/SRException.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr unsigned kTraitsMask = 3;
constexpr unsigned kTraitsReference = 1;
constexpr unsigned kExternalizable = 7;
constexpr unsigned kDynamic = 8;
constexpr unsigned kDynamicInlineHeader = 0x0B;

// What the first entries of a vector or dictionary take.
constexpr std::size_t kCountedEntriesBytes = 3 * sizeof(SRData);

constexpr int kMinInteger = -0x10000000;
constexpr int kMaxInteger = 0x0FFFFFFF;

unsigned elementBytes(int vectorMarker)
{
    switch (vectorMarker) {
        case kAMF3IntVector:
        case kAMF3UintVector:
            return sizeof(unsigned);
        case kAMF3DoubleVector:
            return sizeof(double);
        default:
            return 1;
    }
}

// The names of a vector's or dictionary's entries.
const SRNameListPtr& namesOf(int marker)
{
    static const SRNameListPtr kVector(new SRNameList({"size", "fixed", "value"}, 1));
    static const SRNameListPtr kObjects(new SRNameList({"size", "fixed", "closure", "value"}, 1));
    static const SRNameListPtr kDictionary(new SRNameList({"size", "weak", "key", "value"}, 2));
    return marker == kAMF3Dictionary ? kDictionary : marker == kAMF3ObjectVector ? kObjects : kVector;
}

// The double is an integer that has 29 bits with its sign. (A negative zero is not: it would lose its sign.)
bool isInteger29(double value)
{
    return value >= kMinInteger && value <= kMaxInteger && std::trunc(value) == value &&
           !(value == 0 && std::signbit(value));
}

}  // namespace

struct SRCSerializer::AMF3Markers
{
    using S = SRCSerializer;
    static constexpr std::array<MarkerRow, kAMF3Dictionary + 1> kRows{{
        {&S::readAMF3Undefined, nullptr},
        {&S::readNull, nullptr},
        {&S::readAMF3Boolean, nullptr},
        {&S::readAMF3Boolean, nullptr},
        {&S::readAMF3Integer, L"while processing integer data atom"},
        {&S::readNumber, L"while processing double data atom"},
        {&S::readAMF3StringValue, L"while processing string data atom"},
        {&S::readAMF3XML, L"while processing XML data atom"},
        {&S::readAMF3Date, L"while processing date atom"},
        {&S::readAMF3Array, L"while processing array atom"},
        {&S::readAMF3Object, L"while processing object atom"},
        {&S::readAMF3XML, L"while processing XML data atom"},
        {&S::readAMF3ByteArray, L"while processing byte array"},
        {&S::readAMF3Vector, L"while processing vector object atom"},
        {&S::readAMF3Vector, L"while processing vector object atom"},
        {&S::readAMF3Vector, L"while processing vector object atom"},
        {&S::readAMF3Vector, L"while processing vector object atom"},
        {&S::readAMF3Dictionary, L"while processing dictionary atom"},
    }};
};

// Reading.

void SRCSerializer::readAMF3Var(SRData& value)
{
    const unsigned char marker = GetByte();
    const Nesting nesting(*this);
    if (nesting.isTooDeep())
        HandleBadData(getPosition(),
                      L"while processing AMF3 object data type,values are found nested too deep");
    value.clear();
    if (isBad() || marker >= AMF3Markers::kRows.size())
        return;
    readWith(AMF3Markers::kRows[marker], value, marker);
    value.amf3Hint = marker;
}

void SRCSerializer::readAMF3Undefined(SRData&, int) {}

void SRCSerializer::readAMF3Boolean(SRData& value, int marker)
{
    value.init(marker == kAMF3True);
}

void SRCSerializer::readAMF3Integer(SRData& value, int)
{
    constexpr unsigned kSignBit = 0x10000000;
    constexpr unsigned kAllBits = 0x1FFFFFFF;
    const unsigned bits = ReadUint29() & kAllBits;
    const int integer =
        static_cast<int>(bits) - ((bits & kSignBit) != 0 ? static_cast<int>(kAllBits) + 1 : 0);
    value.init(static_cast<double>(integer));
}

void SRCSerializer::readAMF3StringValue(SRData& value, int)
{
    SRMBString text;
    readAMF3Text(text);
    value.init(text);
}

bool SRCSerializer::isTableIndex(unsigned index, const wchar_t* what)
{
    if (isBad())
        return false;
    if (index < m_objects.size())
        return m_objects[index].kind != kUndefinedType;
    HandleBadData(getPosition(), SRString::format(L"%S%u is found greater than refTable size ", what, index));
    return false;
}

bool SRCSerializer::readCarried(SRData& value, unsigned header, const wchar_t* what, int kind)
{
    if ((header & kAMF3Inline) != 0)
        return false;
    const unsigned index = header >> 1;
    if (!isTableIndex(index, what))
        return true;
    const SRData& entry = m_objects[index];
    if (entry.kind == kind) {
        value.copy(entry);
    } else if (entry.isArrayKind()) {
        const SRDataArray& array = *entry.payload.array;
        const int carrier = kind == kDateType  ? kDateCarrier
                            : kind == kXMLType ? kXMLCarrier
                                               : kByteArrayCarrier;
        if (array.getKind() == carrier && !array.empty())
            value.copy(array.getPropertyValueConst(0));
    }
    return true;
}

void SRCSerializer::readAMF3Date(SRData& value, int)
{
    const unsigned header = ReadUint29();
    if (readCarried(value, header, L"While serializing the date atom, the object index ", kDateType))
        return;
    value.setDate(GetDouble(), 0);
    joinTable(SRData(value));
}

void SRCSerializer::readAMF3XML(SRData& value, int)
{
    const unsigned header = ReadUint29();
    if (readCarried(value, header, L"While serializing the XML atom, the object index ", kXMLType))
        return;
    std::string_view text;
    if (!readXMLText(header, text) || !chargeText(text.size()))
        return;
    value.initText(text.data(), text.size(), kXMLType);
    joinTable(SRData(value));
}

void SRCSerializer::readAMF3ByteArray(SRData& value, int)
{
    const unsigned header = ReadUint29();
    if (readCarried(value, header, L"While serializing the byte array atom, the object index ", kBlobType))
        return;
    const unsigned length = header >> 1;
    if (length > getRemaining()) {
        HandleBadData(getPosition(),
                      L"while serializing the byte array atom,length of data is found greater than "
                      L"remaining bytes\n");
        return;
    }
    readBlobBytes(value, length);
    joinTable(SRData(value));
}

bool SRCSerializer::readElement(SRDataArray& array)
{
    SRData value;
    readAMF3Var(value);
    if (isBad() || !charge(sizeof(SRData)))
        return false;
    array.append(std::move(value));
    return true;
}

bool SRCSerializer::readNamedVar(SRDataArray& array, SRMBString&& name)
{
    SRData value;
    readAMF3Var(value);
    if (isBad() || !chargeNamed(array))
        return false;
    array.append(std::move(name), std::move(value));
    return true;
}

void SRCSerializer::readAMF3Array(SRData& value, int)
{
    const unsigned header = ReadUint29();
    const unsigned count = header >> 1;
    if ((header & kAMF3Inline) == 0) {
        if (isTableIndex(count, L"While serializing the array atom, the object index "))
            shareTableEntry(value, count, kArrayType);
        return;
    }
    if (count > getRemaining()) {
        HandleBadData(getPosition(),
                      L"while serializing the array atom,array length found greater than remaining bytes");
        return;
    }
    const SRDataArrayPtr array = newArray(kArrayCarrier);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), kArrayType);

    // The named elements are read first but appended last.
    if (count == 0) {
        readNamedVars(*array);
        return;
    }
    SRDataArray named;
    readNamedVars(named);
    Promise promise(*this, count);
    array->reserve(promise.room());
    charge(kEntriesBytes);
    while (!isBad() && promise.takeOne() && readElement(*array)) {
    }
    for (int i = 0; i < named.getSize(); ++i)
        array->append(named.getPropertyNameConst(i), std::move(named.getPropertyValue(i)));
}

SRNameListPtr SRCSerializer::readTraits(unsigned header)
{
    if ((header & kExternalizable) == kExternalizable) {
        HandleBadData(
            getPosition(),
            SRString::format(L"While serializing the object atom, the property index count %u externalizable "
                             L"flag is found on ( last 3 bits of value %u). Server doesn't has support for "
                             L"IExternalizable yet.",
                             header >> 4, header));
        return nullptr;
    }
    if ((header & kTraitsMask) == kTraitsReference) {
        const unsigned index = header >> 2;
        if (index < m_traits.size())
            return m_traits[index];
        HandleBadData(
            getPosition(),
            SRString::format(L"While serializing the object atom, class info index %u is found greater than "
                             L"class reference table size ",
                             index));
        return nullptr;
    }
    const SRMBString className = ReadAMF3String();
    const unsigned count = header >> 4;
    if (count > getRemaining()) {
        HandleBadData(
            getPosition(),
            SRString::format(L"While serializing the object atom, the property index count %u is found "
                             L"greater than remaining bytes ",
                             count));
        return nullptr;
    }
    std::vector<SRMBString> members;
    for (unsigned i = 0; i < count && !isBad(); ++i)
        members.push_back(ReadAMF3String());
    if (isBad())
        return nullptr;
    m_traits.push_back(makeTraits(className, std::move(members), (header & kDynamic) != 0));
    return isBad() ? SRNameListPtr() : m_traits[m_traits.size() - 1];
}

SRNameListPtr SRCSerializer::makeTraits(const SRMBString& className, std::vector<SRMBString>&& members,
                                        bool isDynamic)
{
    charge(sizeof(SRNameListPtr));
    // Each anonymous object describes its class: one description serves all.
    if (members.empty() && m_traits.size() > 0) {
        const SRNameListPtr& last = m_traits[m_traits.size() - 1];
        if (last->memberCount() == 0 && last->isDynamic() == isDynamic &&
            last->firstValue().textView() == className.view())
            return last;
    }
    chargeAllocated(sizeof(SRNameList));
    if (!members.empty())
        chargeAllocated(sizeof(std::size_t) + members.size() * sizeof(SRMBString));
    return SRNameListPtr(new SRNameList(className, std::move(members), isDynamic));
}

void SRCSerializer::readNamedVars(SRDataArray& array)
{
    for (SRMBString name; readAMF3Text(name);) {
        if (!readNamedVar(array, std::move(name)))
            return;
    }
}

void SRCSerializer::readAMF3Object(SRData& value, int)
{
    const unsigned header = ReadUint29();
    if ((header & kAMF3Inline) == 0) {
        if (isTableIndex(header >> 1, L"While serializing the object atom, the object index "))
            shareTableEntry(value, header >> 1, kAvmPlusObjectType);
        return;
    }
    if (isBad())
        return;
    const SRNameListPtr traits = readTraits(header);
    const SRDataArrayPtr array = newArray(kObjectCarrier, traits);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), kAvmPlusObjectType);
    if (!traits)
        return;
    if (const unsigned count = traits->memberCount(); count > 0) {
        Promise promise(*this, count);
        array->reserve(1 + promise.room());
        charge(2 * sizeof(SRData));
        while (promise.takeOne()) {
            if (isBad() || !readElement(*array))
                return;
        }
    }
    if (traits->isDynamic())
        readNamedVars(*array);
}

void SRCSerializer::readAMF3Vector(SRData& value, int marker)
{
    const unsigned header = ReadUint29();
    const unsigned count = header >> 1;
    if ((header & kAMF3Inline) == 0) {
        if (isTableIndex(count, L"While reading the object from reference table, the object index "))
            shareTableEntry(value, count, kAvmPlusObjectType);
        return;
    }
    if (count > getRemaining() / elementBytes(marker)) {
        HandleBadData(
            getPosition(),
            L"while serializing the vector atom,length of vector is found greater than remaining bytes");
        return;
    }
    const SRDataArrayPtr array = newArray(kAvmPlusObjectType, namesOf(marker));
    charge(kCountedEntriesBytes);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), kAvmPlusObjectType);
    Promise promise(*this, count);
    array->reserve(promise.room() + (marker == kAMF3ObjectVector ? 3 : 2));
    array->append(SRData(count));
    array->append(SRData(GetByte() == 1));
    if (marker == kAMF3ObjectVector)
        array->append(SRData(ReadAMF3String()));

    while (!isBad() && promise.takeOne()) {
        SRData element;
        switch (marker) {
            case kAMF3IntVector:
                element.init(static_cast<double>(static_cast<int>(GetDWord())));
                break;
            case kAMF3UintVector:
                element.init(GetDWord());
                break;
            case kAMF3DoubleVector:
                element.init(GetDouble());
                break;
            default:
                readAMF3Var(element);
                break;
        }
        if (!isBad() && charge(sizeof(SRData)))
            array->append(std::move(element));
    }
}

void SRCSerializer::readAMF3Dictionary(SRData& value, int)
{
    const unsigned header = ReadUint29();
    const unsigned count = header >> 1;
    if ((header & kAMF3Inline) == 0) {
        if (isTableIndex(count, L"While reading the object from reference table, the object index "))
            shareTableEntry(value, count, kAvmPlusObjectType);
        return;
    }
    if (count > getRemaining() / 2) {
        HandleBadData(
            getPosition(),
            L"while serializing the dictionary atom,length of dictionary is found greater than remaining "
            L"bytes");
        return;
    }
    const SRDataArrayPtr array = newArray(kAvmPlusObjectType, namesOf(kAMF3Dictionary));
    charge(kCountedEntriesBytes);
    const Building building(*this, array.get(), Building::Table::kJoin);
    value.init(array.get(), kAvmPlusObjectType);
    Promise promise(*this, count * 2);
    array->reserve(promise.room() + 2);
    array->append(SRData(count));
    array->append(SRData(GetByte() == 1));
    while (!isBad() && promise.takeOne() && readElement(*array)) {
    }
}

// Writing.

void SRCSerializer::writeAMF3Var(const SRData& value)
{
    const auto put = [this](int marker) { PutByte(static_cast<unsigned char>(marker)); };
    const Nesting nesting(*this);
    if (nesting.isTooDeep())
        throw Unwritable();
    switch (value.kind) {
        case kNumberType:
            writeAMF3Number(value);
            break;
        case kBoolType:
            put(value.payload.boolean ? kAMF3True : kAMF3False);
            break;
        case kStringType:
            put(kAMF3String);
            WriteAMF3String(value.textView());
            break;
        case kNullType:
            put(kAMF3Null);
            break;
        case kObjectType:
        case kTypedObjectType:
        case kAvmPlusObjectType: {
            const bool isSpecial = value.amf3Hint >= kAMF3IntVector && value.amf3Hint <= kAMF3Dictionary;
            const int marker = isSpecial ? static_cast<int>(value.amf3Hint) : static_cast<int>(kAMF3Object);
            put(marker);
            if (marker == kAMF3Object)
                writeAMF3Object(*value.payload.array);
            else if (marker == kAMF3Dictionary)
                writeAMF3Dictionary(*value.payload.array);
            else
                writeAMF3Vector(*value.payload.array, marker);
            break;
        }
        case kArrayType:
        case kStrictArrayType:
            put(kAMF3Array);
            writeAMF3Array(*value.payload.array);
            break;
        case kDateType:
            put(kAMF3Date);
            writeAMF3Date(value);
            break;
        case kXMLType:
            put(value.amf3Hint == kAMF3XML ? kAMF3XML : kAMF3XMLDocument);
            writeAMF3XML(value);
            break;
        case kBlobType:
            put(kAMF3ByteArray);
            writeAMF3ByteArray(value);
            break;
        default:
            put(kAMF3Undefined);
            break;
    }
}

void SRCSerializer::writeAMF3Number(const SRData& value)
{
    constexpr unsigned kAllBits = 0x1FFFFFFF;
    const double number = value.payload.number;
    if (value.amf3Hint == kAMF3Double || !isInteger29(number)) {
        PutByte(kAMF3Double);
        PutDouble(number);
        return;
    }
    PutByte(kAMF3Integer);
    WriteUint29(static_cast<unsigned>(static_cast<int>(number)) & kAllBits);
}

bool SRCSerializer::writeAMF3Reference(SRDataArray& array)
{
    const int index = findInTable(&array);
    if (index < 0) {
        joinTable(&array);
        return false;
    }
    WriteUint29(static_cast<unsigned>(index) * 2);
    return true;
}

void SRCSerializer::writeAMF3Entries(const SRDataArray& array, int first)
{
    SRDataArray::NameBuffer buffer;
    for (int i = first; i < array.getSize(); ++i) {
        const std::string_view name = array.getNameView(i, buffer);
        // The empty name is the end of the list.
        if (name.empty())
            throw Unwritable();
        WriteAMF3String(name);
        writeAMF3Var(array.getPropertyValueConst(i));
    }
    WriteAMF3String(std::string_view());
}

void SRCSerializer::writeAMF3Object(SRDataArray& array)
{
    if (writeAMF3Reference(array))
        return;
    WriteUint29(kDynamicInlineHeader);
    std::string_view className;
    const int first = classNameOf(array, className);
    WriteAMF3String(className == kAnonymousClass ? std::string_view() : className);
    writeAMF3Entries(array, first);
}

void SRCSerializer::writeAMF3Array(SRDataArray& array)
{
    if (writeAMF3Reference(array))
        return;
    WriteUint29(kAMF3Inline);
    writeAMF3Entries(array, 0);
}

void SRCSerializer::writeAMF3Vector(SRDataArray& array, int marker)
{
    if (writeAMF3Reference(array))
        return;
    const int first = marker == kAMF3ObjectVector ? 3 : 2;
    // The array may have changed since: write no more than it has.
    const auto present = static_cast<unsigned>(std::max(array.getSize() - first, 0));
    const unsigned count = std::min(static_cast<unsigned>(array.getPropertyValueConst(0)), present);
    WriteUint29(count * 2 + kAMF3Inline);
    PutByte(static_cast<bool>(array.getPropertyValueConst(1)) ? 1 : 0);
    if (marker == kAMF3ObjectVector)
        WriteAMF3String(array.getPropertyValueConst(2).textView());
    for (unsigned i = 0; i < count; ++i) {
        const SRData& element = array.getPropertyValueConst(first + static_cast<int>(i));
        if (marker == kAMF3DoubleVector)
            PutDouble(static_cast<double>(element));
        else if (marker == kAMF3ObjectVector)
            writeAMF3Var(element);
        else
            PutDWord(static_cast<unsigned>(element));
    }
}

void SRCSerializer::writeAMF3Dictionary(SRDataArray& array)
{
    constexpr int kFirst = 2;
    if (writeAMF3Reference(array))
        return;
    const auto present = static_cast<unsigned>(std::max(array.getSize() - kFirst, 0)) / 2;
    const unsigned count = std::min(static_cast<unsigned>(array.getPropertyValueConst(0)), present);
    WriteUint29(count * 2 + kAMF3Inline);
    PutByte(static_cast<bool>(array.getPropertyValueConst(1)) ? 1 : 0);
    for (unsigned i = 0; i < count * 2; ++i)
        writeAMF3Var(array.getPropertyValueConst(kFirst + static_cast<int>(i)));
}

// Writes a reference to an equal date or XML; the first of its sort joins the table.
bool SRCSerializer::writeKnown(const SRData& value)
{
    const int index = findInTable(value);
    if (index < 0) {
        joinTable(SRData(value));
        return false;
    }
    WriteUint29(static_cast<unsigned>(index) * 2);
    return true;
}

void SRCSerializer::writeAMF3Date(const SRData& value)
{
    if (writeKnown(value))
        return;
    WriteUint29(kAMF3Inline);
    PutDouble(value.getDate());
}

void SRCSerializer::writeAMF3XML(const SRData& value)
{
    if (!writeKnown(value))
        WriteXMLString(value.textView());
}

void SRCSerializer::writeAMF3ByteArray(const SRData& value)
{
    const SRBuffer bytes(value);
    joinTable(SRData(value));
    WriteUint29(bytes.length() * 2 + kAMF3Inline);
    PutData(bytes.data(), bytes.length());
}
