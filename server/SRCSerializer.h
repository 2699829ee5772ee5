// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRAMF3Parser.h"
#include "server/SRData.h"
#include "server/SRNameList.h"
#include "server/chunkedtable.h"
#include "server/hashindex.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// Reads and writes values in AMF0, with AMF3 values inside after marker 17. One table holds the arrays that
/// a later value may refer to, another one AMF3's class descriptions; both are common to all values until a
/// reset.
///
/// Values nested deeper than kMaxNesting are bad data when read and a failure when written.
///
/// References can make an array contain itself. A reader remembers the value that closes a circle, and makes
/// it undefined at its own end, so that nothing leaks. The rest of a value that was copied out stays intact.
class SRCSerializer : public SRAMF3Parser
{
public:
    static constexpr unsigned kMaxNesting = 256;

    using SRAMF3Parser::SRAMF3Parser;
    SRCSerializer() = default;
    ~SRCSerializer() override;

    /// Reads one value; with reset the tables are emptied afterwards. Returns its marker; 9 when there is
    /// none, or no memory for it (see hasReadStarved). Throws SRBreakConnection 1029, for an unknown marker
    /// also when the reader does not throw on bad data.
    int GetVar(SRData* value, bool reset);
    /// Writes one value; with reset the tables are emptied afterwards. False, with the output unchanged, when
    /// the value cannot be written wholly: no memory, the output limit, too deep, or an array that contains
    /// itself where the encoding has no references.
    bool PutVar(const SRData* value, bool reset);

    /// Reads or writes one AMF0 value, after its name when there is one. Returns the marker; 9 when the value
    /// could not be read or written. A failure inside a value that is written ends the objects around it
    /// early.
    int ProcessScriptVar(SRData* value, SRMBString* name = nullptr);

    /// Skips one AMF0 value and returns its marker; 9 at the end of the input and after bad data. Its objects
    /// and strict arrays take their places in the object table, as empty arrays.
    int skipVar();

    /// Empties the object table and the class table.
    void CleanDirtyFlags();

    /// Some value since the start could not be written wholly.
    bool hasWriteFailed() const { return m_writeFailed; }
    /// The same for lack of memory, not for its nature or the output limit.
    bool hasWriteStarved() const { return m_writeStarved; }
    /// Some value since the start could not be read for lack of memory: the values read are incomplete.
    bool hasReadStarved() const { return m_readStarved; }

    /// Puts an array into the object table, which grows with empty slots when the index lies past its end.
    void AddObjectToTable(SRDataArray* array, unsigned index);

private:
    /// Class of an object that has none.
    static constexpr char kAnonymousClass[] = "Object";
    /// Hint of an entry of the object table whose values are being read: a reference to it closes a circle.
    static constexpr unsigned char kBeingRead = 255;

    /// At most what an array's entries take besides themselves and the name that some have.
    static constexpr std::size_t kEntriesBytes = 24;

    /// What the index of a writer's object takes.
    static constexpr std::size_t kIndexBytes = 8;

    /// A holder has a reference to a target that contains it.
    struct Circle
    {
        SRDataArrayPtr holder;
        SRDataArrayPtr target;

        bool operator<(const Circle& other) const;
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
    struct AMF0Markers;
    struct AMF3Markers;
    class Nesting;
    class Building;
    class Promise;
    class WriteMark;
    struct PopOpen;

    bool chargeNamed(const SRDataArray& array);
    SRDataArrayPtr newArray(int kind, const SRNameListPtr& names = nullptr);

    // Tables.
    unsigned joinTable(SRData&& value);
    unsigned joinTable(SRDataArray* array);
    unsigned joinTableEmpty(int kind);
    void putInTable(SRData&& value, unsigned index);
    SRDataArray* tableArray(unsigned index);
    int findInTable(const SRData& value) const;
    int findInTable(SRDataArray* array) const;
    void shrinkTable(unsigned size);
    void shareTableEntry(SRData& value, unsigned index, int kind);
    void openCircles() noexcept;
    /// Null after bad data for an unknown marker, which throws in every reader.
    const MarkerRow* existingRow(int marker);
    void readWith(const MarkerRow& row, SRData& value, int marker);

    // AMF0.
    int readVar(SRData& value, std::string_view* name);
    /// Returns read(), or the end marker when memory runs out.
    template <typename Read>
    int unlessStarved(const Read& read);
    int readVarInside(SRData& value, std::string_view* name);
    void readName(std::string_view& name);
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
    int writeVar(const SRData& value, const std::string_view* name);
    int markerFor(const SRData& value) const;
    int writeMarked(const SRData& value);
    /// Index of the first entry after the class name, which is "Object" for an array without one.
    static int classNameOf(const SRDataArray& array, std::string_view& name);
    void writeName(std::string_view name);
    void writeObject(SRDataArray& array, int marker);
    void writeECMAArray(SRDataArray& array);
    void writeStrictArray(SRDataArray& array);
    void writeEntries(const SRDataArray& array, int first);
    int skipVarInside();
    int skipMarked();
    void skipEntries();
    void skipElements();

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
    SRNameListPtr readTraits(unsigned header);
    SRNameListPtr makeTraits(const SRMBString& className, std::vector<SRMBString>&& members, bool isDynamic);
    bool readElement(SRDataArray& array);
    bool readNamedVar(SRDataArray& array, SRMBString&& name);
    void readNamedVars(SRDataArray& array);
    bool isTableIndex(unsigned index, const wchar_t* what);
    /// False when the value follows inline. A reference copies its target; the value stays undefined when
    /// that is of another kind.
    bool readCarried(SRData& value, unsigned header, const wchar_t* what, int kind);
    void writeAMF3Var(const SRData& value);
    void writeAMF3Number(const SRData& value);
    void writeAMF3Object(SRDataArray& array);
    void writeAMF3Array(SRDataArray& array);
    void writeAMF3Vector(SRDataArray& array, int marker);
    void writeAMF3Dictionary(SRDataArray& array);
    bool writeKnown(const SRData& value);
    void writeAMF3Date(const SRData& value);
    void writeAMF3XML(const SRData& value);
    void writeAMF3ByteArray(const SRData& value);
    void writeAMF3Entries(const SRDataArray& array, int first);
    bool writeAMF3Reference(SRDataArray& array);

    /// What a later value may refer to: arrays, and AMF3 dates, XML and blobs. The array that carries one of
    /// these is made on demand. Until then a skipped array is a null with its kind in timeZone.
    krx::ChunkedTable<SRData> m_objects;
    unsigned m_nextObject = 0;  ///< next free index of m_objects
    krx::ChunkedTable<SRNameListPtr> m_traits;
    krx::HashIndex m_objectIndex;  ///< a writer's map of values to their first index in m_objects

    /// Arrays whose values are being read, and ECMA arrays whose values are being written; outermost first.
    std::vector<SRDataArray*> m_open;
    std::vector<Circle> m_circles;
    /// Elements yet to come by the counts of the arrays being read. Each needs at least one byte: counts get
    /// no more room than there are bytes left.
    std::uint64_t m_promised = 0;
    unsigned m_depth = 0;
    bool m_readStarved = false;
    bool m_writeFailed = false;
    bool m_writeStarved = false;
    bool m_writeBroken = false;  ///< in the present outermost value
};
