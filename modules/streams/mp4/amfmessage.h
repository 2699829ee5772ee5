// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/amfwriter.h"
#include "util/SRBuffer.h"

#include <functional>
#include <string_view>

namespace krx::mp4 {

class MemoryBudget;
class TrackInfo;
struct DRMTrackInfo;
struct Movie;

/// The body, in AMF0, of a data message made from an MP4 file's facts. All numbers are big-endian; numbers of
/// the file are written as doubles.
///
/// When the buffer cannot grow, hasFailed() becomes true, nothing more is written, and the body is of no use.
/// Bodies about the whole file may be long: their length is counted first and charged to the budget, then the
/// memory is taken in one piece. They throw MemoryLimitError and SROutOfMemory.
class AMFMessage : public SRMemory, private AMFWriter
{
public:
    static constexpr unsigned kInitialCapacity = 2048;

    /// budget may be null; it is not owned.
    explicit AMFMessage(MemoryBudget* budget = nullptr);

    /// Bytes written.
    unsigned length() const { return m_length; }
    bool hasFailed() const { return m_failed; }

    // Each builds one whole body. With amf3 it is that of an AMF3 data message and starts with a zero byte.

    /// "onMetaData": what the file and its tracks are. duration in ms.
    void initMetaData(const Movie& movie, unsigned duration, bool amf3);
    /// "onTextData": a timed-text sample, its text and its modifiers as far as they are there.
    void initFromText(const TrackInfo& track, bool amf3, const unsigned char* sample, unsigned length);
    /// "onImageData": with amf3 the image's bytes; AMF0 has no form for them.
    void initFromImage(unsigned trackId, bool amf3, const unsigned char* data, unsigned length);
    /// "onXMPData": the XMP text, as far as the memory is used.
    void initXMP(const SRMemory& xmp);
    /// "|AdditionalHeader": how the content is protected. False, and empty, when no valid track is protected.
    bool initDRMData(const Movie& movie);

    // The parts of a body.

    void WriteAMF0Byte(unsigned char byte) { putByte(byte); }
    void WriteAMF0U32(unsigned value) { putU32(value); }
    /// 1 to 4 bytes; a value from 2^30 on is written as a zero byte.
    void WriteAMF3Uint29(unsigned value) { putUint29(value); }
    /// The text with its length in front (2 bytes, 4 above 65,535 bytes), and the marker if wanted. Text ends
    /// at its first zero byte. Text that begins with FE FF is UTF-16 (ending at its first zero unit) and
    /// becomes UTF-8; text that begins with FF FF counts as empty.
    void AddAMF0String(std::string_view text, bool withMarker);
    /// Without a marker.
    void AddAMF0Number(double number) { putDouble(number); }
    void AddNamedAMF0Number(const char* name, double number);
    /// Nothing when either is null.
    void AddNamedAMF0String(const char* name, const char* value);

    /// Writes a UTF-16 unit as 1 to 3 bytes if they fit before end; returns how many.
    static unsigned U16CharToUTF8(unsigned unit, char* out, const char* end);
    /// Writes the four characters, taken as Latin-1, and a zero byte; out has room for 9 bytes.
    static void FourCCToUTF8(char* out, unsigned fourCC);
    /// Writes the three letters of a packed language code, and a zero byte; out has room for 4 bytes.
    static void ToLanguageString(unsigned code, char* out);
    /// Reads up to n bytes before end, and advances *p.
    static unsigned SaveReadUnsigned(const unsigned char** p, int n, const unsigned char* end);

private:
    class MetaData;
    class TimedText;

    void makeWhole(const std::function<void()>& write);
    unsigned char* make(unsigned n) override;
    void putUTF8(std::string_view utf16);
    void writeDRMData(const DRMTrackInfo& drm);
    /// The name of the value that follows.
    void addName(std::string_view name) { AddAMF0String(name, false); }
    void addNamedText(std::string_view name, std::string_view value);
    void beginObject() { putByte(kAMF0Object); }
    void beginObject(std::string_view name);
    void beginECMAArray(unsigned count);
    void beginStrictArray(std::string_view name, unsigned count);
    void beginMessage(std::string_view name, bool amf3);
    void endObject();
    /// The AMF3 value of a run of bytes.
    void addByteArray(const unsigned char* bytes, unsigned n);

    MemoryBudget* m_budget;
    unsigned m_length = 0;
    bool m_failed = false;
    bool m_isCounting = false;  ///< nothing is written, only the length is counted
};

}  // namespace krx::mp4
