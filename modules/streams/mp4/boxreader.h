// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/boxheader.h"
#include "modules/streams/mp4/memorybudget.h"
#include "modules/streams/mp4/mp4config.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "modules/streams/streamparseerror.h"
#include "util/bigendian.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace krx::mp4 {

/// Reads the boxes of a file: keeps the position, reads integers and headers there, knows the open boxes, and
/// reports findings. Knows no box type: BoxWalk and the handlers decide what is done with a box.
///
/// Positions and sizes are bytes of the file; integers are big-endian. A read that crosses the end of the
/// file throws kFileReadError, one that starts there TruncatedStreamError (kTruncatedFile). Every fault that
/// the reader throws has its place.
class BoxReader
{
public:
    /// Takes text that ends its lines itself.
    using LineSink = std::function<void(std::string_view text)>;

    explicit BoxReader(const Mp4Config& config);
    BoxReader(const BoxReader&) = delete;
    BoxReader& operator=(const BoxReader&) = delete;

    /// The settings that the file is read under.
    const Mp4Config& config() const { return m_config; }
    /// The memory that the file may use. Whoever keeps data of the file charges it here before the memory is
    /// taken.
    MemoryBudget& memory() { return m_memory; }

    /// Not owned. Must be set, and open, before start.
    void setFile(Mp4FileIO* file) { m_file = file; }
    Mp4FileIO* file() const { return m_file; }

    // The position. It does not leave the file: a move beyond an end stops there.

    /// Takes up the size of the file and moves to pos.
    void start(krx::util::FilePos pos);
    krx::util::FilePos position() const { return m_position; }
    krx::util::FilePos fileSize() const { return m_fileSize; }
    void skipTo(krx::util::FilePos pos) { m_position = std::clamp<krx::util::FilePos>(pos, 0, m_fileSize); }
    void skip(unsigned n) { skipTo(m_position + n); }
    /// Bytes between the position and end; 0 beyond it.
    unsigned long long bytesLeft(krx::util::FilePos end) const
    {
        return static_cast<unsigned long long>(std::max(end - m_position, 0LL));
    }

    // Reading at the position, which moves past what is read.

    unsigned char readU8() { return *take(1); }
    unsigned short readU16() { return krx::util::loadBigEndian<unsigned short>(take(2)); }
    unsigned readU24()
    {
        const unsigned char* p = take(3);
        return static_cast<unsigned>(p[0] << 16 | p[1] << 8 | p[2]);
    }
    unsigned readU32() { return krx::util::loadBig32(take(4)); }
    unsigned long long readU64() { return krx::util::loadBigEndian<unsigned long long>(take(8)); }
    /// The next n bytes, valid until the next reading. The position stays.
    const unsigned char* peek(unsigned n) { return m_file->look(m_position, n); }
    /// n bytes into a buffer of the caller. More than 2 GiB throw kBoxTooLarge.
    void read(void* buffer, unsigned long long n);

    // Boxes.

    /// Reads the header of the box at the position, inside parent, checks its size, and leaves the position
    /// at the payload. Throws kTruncatedBox for a box that leaves its parent or is smaller than its header,
    /// and notPositive for a size that is not positive as a signed number. Media data cut off by the end of
    /// the file is a warning.
    BoxHeader readHeader(const BoxHeader& parent,
                         krx::streams::ParseStatus notPositive = krx::streams::kTruncatedBox);
    /// Finds a box by its type alone; it may start at any byte before end. If found, the position is the
    /// start of its header.
    bool skipToBox(unsigned type, krx::util::FilePos end);

    /// Runs function with the box open: the box ends the paths in places and in the log. number is shown in
    /// places, see krx::streams::Place; 0 for none. A fault that leaves function without a place gets that of
    /// the box.
    template <typename Function>
    void inside(const BoxHeader& box, unsigned number, Function function)
    {
        const OpenBox open(*this, box, number);
        try {
            function();
        } catch (krx::streams::StreamParseError& error) {
            addPlace(error);
            throw;
        }
    }
    bool hasOpenBox() const { return !m_open.empty(); }
    /// The type of the box around the innermost open one; 0 when there is none.
    unsigned parentType() const { return m_open.size() < 2 ? 0 : m_open[m_open.size() - 2].type; }
    /// Throws kTruncatedBox where more boxes are open than a file may nest.
    void checkNesting() const;

    // Findings. A warning that nobody takes is not made: neither the finding sink, nor the lines, nor those
    // who count warnings as errors.

    /// The track that findings are about from here on; 0 for none.
    void setTrackId(unsigned id) { m_trackId = id; }
    /// Gives the fault the place of the innermost open box, unless it has one. Outside of all boxes it is the
    /// position.
    void addPlace(krx::streams::StreamParseError& error) const;
    /// The offset in the open boxes, with the track.
    krx::streams::Place placeAt(krx::util::FilePos offset) const;
    /// Throws the fault with the place of placeAt.
    [[noreturn]] void failAt(krx::util::FilePos offset, krx::streams::ParseStatus status) const;
    /// Warns, with the place of addPlace.
    void warn(krx::streams::ParseStatus status);
    /// Warns, with the place of placeAt.
    void warnAt(krx::util::FilePos offset, krx::streams::ParseStatus status);
    /// Warns with the name of the box, which is the innermost open one or in it.
    void warnAboutBox(krx::streams::ParseStatus status, const BoxHeader& box);
    /// The same for a fault that becomes a warning. It keeps its place.
    void warnAboutBox(const krx::streams::StreamParseError& fault, const BoxHeader& box);
    /// Hands the warning to the finding sink if that admits it, throws a copy when warnings count as errors,
    /// and prints it above log level 2.
    void logWarning(const krx::streams::StreamParseError& warning);
    /// Prints above log level 4.
    void logInfo(const std::string& text) const;

    void setLogLevel(int level) { m_logLevel = level; }
    void setWarningsAsErrors(bool on) { m_warningsAsErrors = on; }
    /// Gets the warnings, each before it is thrown or printed. Null for none; not owned.
    void setFindingSink(krx::streams::FindingSink* sink) { m_findingSink = sink; }
    /// Gets what is printed, which without a call goes to the standard output. An empty one drops it.
    void setLineSink(LineSink sink) { m_lineSink = std::move(sink); }
    /// While on, all warnings but those of logWarning are left out: bytes that are read again gave theirs
    /// before.
    void setQuiet(bool on) { m_quiet = on; }
    /// Bytes held, those of the object itself excluded.
    std::size_t reportMemorySize() const { return m_open.capacity() * sizeof(Open); }

private:
    struct Open
    {
        krx::util::FilePos start;
        unsigned type;
        unsigned number;  ///< see krx::streams::Place; 0 for none
    };
    class OpenBox
    {
    public:
        OpenBox(BoxReader& reader, const BoxHeader& box, unsigned number) : m_boxes(reader.m_open)
        {
            m_boxes.push_back({box.start, box.type, number});
        }
        ~OpenBox() { m_boxes.pop_back(); }
        OpenBox(const OpenBox&) = delete;
        OpenBox& operator=(const OpenBox&) = delete;

    private:
        std::vector<Open>& m_boxes;
    };

    const unsigned char* take(unsigned n)
    {
        const unsigned char* bytes = m_file->look(m_position, n);
        m_position += n;
        return bytes;
    }
    void logHeader(const BoxHeader& box) const;
    void printLine(std::string_view text) const;
    bool askSink() const { return m_findingSink && m_findingSink->admitsWarning(); }
    bool isUsed(bool admitted) const;
    void deliver(const krx::streams::StreamParseError& warning, bool admitted) const;
    /// Delivers what make() returns, if it is wanted.
    template <typename Make>
    void warnOf(Make make)
    {
        if (m_quiet)
            return;
        const bool admitted = askSink();
        if (isUsed(admitted))
            deliver(make(), admitted);
    }

    Mp4Config m_config;
    MemoryBudget m_memory;
    Mp4FileIO* m_file = nullptr;
    krx::util::FilePos m_fileSize = 0;
    krx::util::FilePos m_position = 0;
    std::vector<Open> m_open;  ///< the boxes around the position, outermost first
    unsigned m_trackId = 0;

    int m_logLevel = 2;
    bool m_warningsAsErrors = false;
    bool m_quiet = false;
    krx::streams::FindingSink* m_findingSink = nullptr;
    LineSink m_lineSink;
};

}  // namespace krx::mp4
