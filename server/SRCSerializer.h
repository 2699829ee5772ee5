// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRAMF3Parser.h"
#include "server/SRData.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// Reads and writes values in AMF0, with AMF3 values inside after marker 17. One table holds the arrays that
/// a later value may refer to, another one AMF3's class descriptions; both are common to all values until a
/// reset.
///
/// Values that are nested deeper than kMaxNesting are bad data in reading and a failure in writing.
///
/// References can make an array lie in itself. A reader remembers where it closed such a circle and opens it
/// again (that one value becomes undefined) at its own end, so that nothing leaks. All else of a value that
/// was copied out stays intact.
class SRCSerializer : public SRAMF3Parser
{
public:
    static constexpr unsigned kMaxNesting = 256;

    using SRAMF3Parser::SRAMF3Parser;
    SRCSerializer() = default;
    ~SRCSerializer() override;

    /// Reads one value; with reset the tables are emptied afterwards. Returns its marker, 9 when there is
    /// none. Throws SRBreakConnection 1029, for a marker that does not exist also when the reader does not
    /// throw on bad data.
    int GetVar(SRData* value, bool reset);
    /// Writes one value; with reset the tables are emptied afterwards. False when it could not be written
    /// wholly: no memory, the output limit, too deep, or an array that lies in itself where the encoding has
    /// no references. The output then ends before the part that failed, with the objects around it closed.
    bool PutVar(const SRData* value, bool reset);

    /// Reads or writes one AMF0 value, after its name when there is one. Returns the marker; 9 when the value
    /// could not be read or written.
    int ProcessScriptVar(SRData* value, SRMBString* name = nullptr);

    /// Skips one AMF0 value and returns its marker; 9 at the end of the input and after bad data.
    int skipVar();

    /// Empties the object table and the class table.
    void CleanDirtyFlags();

    /// Some value since the start could not be written wholly.
    bool hasWriteFailed() const { return m_writeFailed; }
    /// The same for want of memory, not by its nature or the output limit.
    bool hasWriteStarved() const { return m_writeStarved; }
    /// Some value since the start could not be read for want of memory: what was read is not all that the
    /// input holds.
    bool hasReadStarved() const { return m_readStarved; }

    /// Puts an array into the object table, which grows with empty slots when the index lies behind its end.
    void AddObjectToTable(SRDataArray* array, unsigned index);

private:
    /// Name of the entry with an object's class name, and the class that has none.
    static constexpr char kClassNameEntry[] = "constructor";
    static constexpr char kAnonymousClass[] = "Object";
    /// Entries that are reserved on the word of a count; more come as the values do.
    static constexpr unsigned kTrustedCount = 256;

    struct TableEntry
    {
        SRDataArrayPtr array;
        bool reading = false;  ///< its values are being read: a reference to it closes a circle
    };
    /// One marker: how its value is read, and the trace line of a failure inside (null: none).
    struct MarkerRow
    {
        void (SRCSerializer::*read)(SRData&, int marker);
        const wchar_t* trace;
    };
    /// Thrown inside writing where a value has no encoding.
    struct Unwritable
    {
    };
    using DateKey = std::pair<std::uint64_t, int>;  ///< the bits of the milliseconds, the time zone
    struct AMF0Markers;
    struct AMF3Markers;
    class Nesting;
    class Building;
    class WriteMark;
    struct PopOpen;

    // Tables.
    unsigned joinTable(SRDataArray* array);
    int findInTable(const SRDataArray* array) const;
    void shrinkTable(unsigned size);
    void shareTableEntry(SRData& value, unsigned index, int kind);
    void openCircles() noexcept;
    /// A marker that does not exist is bad data, whatever the reader does with bad data.
    const MarkerRow& existingRow(int marker);
    void readWith(const MarkerRow& row, SRData& value, int marker);

    // AMF0.
    int readVar(SRData& value, SRMBString* name);
    void readName(SRMBString& name);
    void readNothing(SRData& value, int marker);
    void readNumber(SRData& value, int marker);
    void readBoolean(SRData& value, int marker);
    void readInt64(SRData& value, int marker);
    void readNull(SRData& value, int marker);
    void readUndefined(SRData& value, int marker);
    void readString(SRData& value, int marker);
    void readDate(SRData& value, int marker);
    void readBlob(SRData& value, int marker);
    /// length bytes, which are there, as a blob of their own.
    void readBlobBytes(SRData& value, unsigned length);
    void readReference(SRData& value, int marker);
    void ProcessObjectType(SRData& value, int marker);
    void readECMAArray(SRData& value, int marker);
    void readStrictArray(SRData& value, int marker);
    void readAMF3Switch(SRData& value, int marker);
    void readEntries(SRDataArray& array);
    static SRMBString indexName(unsigned index);
    int writeVar(const SRData& value, const SRMBString* name);
    int markerFor(const SRData& value) const;
    int writeMarked(const SRData& value);
    /// Index of the first entry behind the class name, which is "Object" for an array without one.
    static int classNameOf(const SRDataArray& array, std::string_view& name);
    void writeName(std::string_view name);
    void writeObject(SRDataArray& array, int marker);
    void writeECMAArray(SRDataArray& array);
    void writeStrictArray(SRDataArray& array);
    void writeEntries(const SRDataArray& array, int first);
    int skipMarked();
    void skipEntries();

    // AMF3.
    void readAMF3Var(SRData& value);
    void readAMF3Undefined(SRData& value, int marker);
    void readAMF3Boolean(SRData& value, int marker);
    void readAMF3Integer(SRData& value, int marker);
    void readAMF3StringValue(SRData& value, int marker);
    void readAMF3XML(SRData& value, int marker);
    void readAMF3Date(SRData& value, int marker);
    void readAMF3Array(SRData& value, int marker);
    void readAMF3Object(SRData& value, int marker);
    void readAMF3ByteArray(SRData& value, int marker);
    void readAMF3Vector(SRData& value, int marker);
    void readAMF3Dictionary(SRData& value, int marker);
    SRDataArrayPtr readTraits(unsigned header);
    bool readNamedVar(SRDataArray& array, SRMBString&& name);
    bool isTableIndex(unsigned index, const wchar_t* what);
    const SRData* findCarried(unsigned index, const wchar_t* what, int carrierKind);
    void addCarrier(int carrierKind, const char* name, const SRData& value);
    void writeAMF3Var(const SRData& value);
    void writeAMF3Number(const SRData& value);
    void writeAMF3Object(SRDataArray& array);
    void writeAMF3Array(SRDataArray& array);
    void writeAMF3Vector(SRDataArray& array, int marker);
    void writeAMF3Dictionary(SRDataArray& array);
    static DateKey dateKey(const SRData& date);
    void writeAMF3Date(const SRData& value);
    void writeAMF3XML(const SRData& value);
    void writeAMF3ByteArray(const SRData& value);
    void writeAMF3Entries(const SRDataArray& array, int first);
    bool writeAMF3Reference(SRDataArray& array);

    std::vector<TableEntry> m_objects;
    unsigned m_nextObject = 0;  ///< next free index of m_objects
    /// Class descriptions. Entry names: the header as decimal text, the class name, the members' names.
    std::vector<SRDataArrayPtr> m_traits;

    // A writer's ways from what it wrote to the first index in the object table.
    std::unordered_map<const SRDataArray*, unsigned> m_objectIndex;
    std::map<DateKey, unsigned> m_dateIndex;
    std::unordered_map<std::string, unsigned> m_xmlIndex;

    /// Arrays whose values are being read, and ECMA arrays whose values are being written; outermost first.
    std::vector<SRDataArray*> m_open;
    /// (holder, target): the holder has a reference to the target, in which it lies itself.
    std::set<std::pair<SRDataArray*, SRDataArray*>> m_circles;
    std::vector<SRDataArrayPtr> m_circleParts;  ///< keeps both alive
    unsigned m_depth = 0;
    bool m_readStarved = false;
    bool m_writeFailed = false;
    bool m_writeStarved = false;
    bool m_writeBroken = false;  ///< in the present outermost value
};
