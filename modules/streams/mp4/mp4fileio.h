// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/mp4/filewindow.h"
#include "modules/streams/mp4/mp4config.h"
#include "util/SRString.h"
#include "util/autofilebuffer.h"

#include <cstddef>

class IKrxFileIo;

namespace krx::mp4 {

/// The file access of one MP4 file: a handle that is opened on demand, a read position, three read-ahead
/// buffers (video, audio and other messages), and a window for the reader of the boxes.
class Mp4FileIO
{
public:
    enum Origin
    {
        kFromCurrent = 0,
        kFromStart = 1,
        kFromEnd = 2,
    };

    /// io is not owned and outlives the object. openFlags are kept for the recording path; files open for
    /// reading.
    Mp4FileIO(const SRMBString& fileName, IKrxFileIo* io, int openFlags, const Mp4Config& config);
    ~Mp4FileIO();
    Mp4FileIO(const Mp4FileIO&) = delete;
    Mp4FileIO& operator=(const Mp4FileIO&) = delete;

    /// Opens the file and returns the handle, negative on failure. Only regular files open.
    int Open();
    /// Flushes the buffers and closes the handle.
    void Close();
    bool isOpen() const { return m_handle >= 0; }
    /// Negative while the file is closed. The offset of the descriptor may be moved.
    int handle() const { return m_handle; }

    /// Reads length bytes at the position, from the window or through the "other" buffer, and advances it.
    /// Returns length, or 0 when the file is closed or the position at or past its end. Throws kFileReadError
    /// when only a part is there, kBoxTooLarge for a length above 2 GiB.
    unsigned Read(void* dest, unsigned long long length);
    /// The n bytes at position, valid until the next look or Close. n is at most FileWindow::kLargest. The
    /// read position does not move. Throws TruncatedStreamError (kTruncatedFile) when the file is closed or
    /// position not inside it, kFileReadError when only a part is there.
    const unsigned char* look(long long position, unsigned n)
    {
        const unsigned char* bytes = m_window.at(position, n);
        return bytes ? bytes : lookAnew(position, n);
    }
    /// Reads up to length bytes at position without moving the read position; messageType chooses the buffer.
    /// Returns the count; 0 when the file is closed or position is not inside it.
    unsigned ReadMessage(void* dest, unsigned length, long long position, unsigned char messageType);
    /// Moves the position; a result outside the file becomes its nearest end. -1 on failure, else the
    /// position.
    long long Seek(long long offset, Origin origin);
    long long Tell() const { return static_cast<long long>(m_position); }
    /// The file's size as of the first or the last forced query; 0 while unknown.
    long long Size(bool force = false);
    /// An unsigned big-endian integer of n bytes (at most 8) at the position. Throws as Read, and
    /// TruncatedStreamError (kTruncatedFile) when nothing is there.
    unsigned long long readInt(unsigned n);
    /// Seconds since 1970; 0 when unknown.
    unsigned GetModifiedTime() const;
    const SRMBString& GetFileName() const { return m_fileName; }
    int getOpenFlags() const { return m_openFlags; }
    /// Gives back the memory of the buffers and the window.
    void FlushMemory();
    bool Unlink();
    /// Bytes held.
    std::size_t reportMemorySize() const;

private:
    const unsigned char* lookAnew(long long position, unsigned n);
    krx::util::AutoFileBuffer& chooseBuffer(long long position, unsigned length, unsigned char messageType);

    SRMBString m_fileName;
    IKrxFileIo* m_io;
    int m_openFlags;
    int m_handle = -1;
    unsigned long long m_position = 0;
    unsigned long long m_size = 0;
    krx::util::AutoFileBuffer m_video;
    krx::util::AutoFileBuffer m_audio;
    krx::util::AutoFileBuffer m_other;
    FileWindow m_window;
};

/// Opens the file for the length of a scope; a file that was open already stays open.
class AutoMp4Open
{
public:
    explicit AutoMp4Open(Mp4FileIO* io);
    ~AutoMp4Open();
    AutoMp4Open(const AutoMp4Open&) = delete;
    AutoMp4Open& operator=(const AutoMp4Open&) = delete;
    bool isOpen() const;

private:
    Mp4FileIO* m_io;
    bool m_opened;
};

}  // namespace krx::mp4
