// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRBuffer.h"
#include "util/SRString.h"
#include "util/serializeutil.h"

class IKrxFileIo;
struct stat64;

/// Opens a file through the file interface and closes it at the end of the scope. The interface stays the
/// caller's.
class IoAutoFile
{
public:
    /// As IKrxFileIo::open; st may be null.
    IoAutoFile(IKrxFileIo* io, const SRString& path, int flags, int mode, struct stat64* st);
    ~IoAutoFile() { close(); }
    IoAutoFile(const IoAutoFile&) = delete;
    IoAutoFile& operator=(const IoAutoFile&) = delete;

    /// Negative when the file could not be opened.
    int get() const { return m_fd; }
    /// Gives the descriptor up without closing it.
    int release();
    /// Closes now, for callers to whom a failure matters; negative on failure, 0 when nothing is open.
    int close();

private:
    IKrxFileIo* m_io;
    int m_fd = -1;
};

namespace krx::util {

/// A whole file in memory, read at construction, and a read position. Throws only FileReadException, also
/// when memory runs out; its text may be missing then.
class AutoFileLoad : public IDeserialize
{
public:
    /// Throws FileReadException when path is no regular file that can be read, has 4 GiB or more, or does not
    /// fit the memory. A file that shrinks meanwhile gives the bytes that are left. They go to the memory of
    /// room, which must have no other holder, if it is large enough.
    AutoFileLoad(const SRString& path, IKrxFileIo* io, SRBuffer room = SRBuffer());

    const SRBuffer& getBuffer() const { return m_buffer; }
    /// Copies the next n bytes. Where fewer are left it copies those and throws FileReadException, with the
    /// offset of the end.
    void read(void* out, unsigned n) override;
    /// Bytes that are read.
    unsigned position() const { return m_pos; }
    /// Bytes that are not yet read.
    unsigned remaining() const { return m_buffer.length() - m_pos; }

private:
    SRBuffer m_buffer;
    unsigned m_pos = 0;
};

/// Collects the bytes of a file in memory; flush() writes the file. Throws as AutoFileLoad.
class AutoFileSave : public ISerialize
{
public:
    /// Starts empty with room for capacity bytes. Throws FileReadException when there is no memory.
    AutoFileSave(const SRString& path, IKrxFileIo* io, unsigned capacity);
    /// Starts with the bytes of buffer, which are shared until the first write.
    AutoFileSave(const SRString& path, IKrxFileIo* io, const SRBuffer& buffer);

    const SRBuffer& getBuffer() const { return m_buffer; }
    /// Throws FileReadException when the bytes do not fit the memory; nothing is appended then.
    void write(const void* bytes, unsigned n) override;
    /// Writes the file in place and creates it and its missing directories. Throws FileReadException when the
    /// file is not written wholly.
    void flush();

private:
    SRString m_path;
    IKrxFileIo* m_io;
    SRBuffer m_buffer;
    bool m_shared = false;
};

}  // namespace krx::util
