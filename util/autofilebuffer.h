// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <cstddef>
#include <memory>

class IKrxFileIo;

namespace krx::util {

/// A read-ahead cache over an open descriptor. Descriptor, file interface and parent stay the caller's.
///
/// The cached window is refilled with one positional read. The memory is taken when first needed, 64 KiB
/// at most, and doubles while the reads fill it, so that a large cache for a small file costs nothing. A
/// request that is at least as large as the cache goes straight to the caller's buffer.
class AutoFileBuffer
{
public:
    /// Where a span lies as seen from the cached window.
    enum class Range
    {
        kBefore,        ///< it ends at or before the start of the window
        kInside,        ///< the window holds all of it
        kPartlyInside,  ///< the window holds some of it
        kAfter,         ///< it starts at or after the end of the window; also for an empty window
    };

    /// cacheSize in bytes; 0 caches nothing. With a parent, all reads are done through it.
    AutoFileBuffer(unsigned cacheSize, IKrxFileIo* io, AutoFileBuffer* parent = nullptr);
    AutoFileBuffer(const AutoFileBuffer&) = delete;
    AutoFileBuffer& operator=(const AutoFileBuffer&) = delete;

    /// Moves the position. Outside the window, or with another descriptor, the window becomes empty. A
    /// negative position throws FileReadException and changes nothing.
    void seek(int fd, FilePos pos);
    FilePos tell() const { return m_pos; }

    /// Reads n bytes at the position and advances it. Returns the bytes read. If they are fewer than n,
    /// without allowShort, it reports the caller's file and line on standard error and throws
    /// FileReadException; with quiet neither happens.
    unsigned sequentialRead(void* buf, unsigned n, bool allowShort, unsigned line, const char* file,
                            bool quiet = false);
    /// seek, then sequentialRead. A negative position gives 0 bytes with quiet.
    unsigned indexedRead(int fd, FilePos pos, void* buf, unsigned n, bool allowShort, unsigned line,
                         const char* file, bool quiet = false);
    /// Reads without using or changing the cache. Throws FileReadException when no byte can be read.
    unsigned directRead(int fd, FilePos pos, void* buf, unsigned n);

    /// In direct-read mode nothing is cached.
    void setDirectRead(bool direct);

    Range isInRange(FilePos pos, unsigned n) const;
    /// For a negative position: false if quiet, else throws FileReadException.
    static bool sanityCheck(FilePos pos, bool quiet);

    /// Refills the window at the position. Returns its size: 0 at the end of the file, on failure and without
    /// memory.
    unsigned loadBuffer();
    /// Forgets the cached bytes and the descriptor.
    void flush();
    /// flush, and gives the memory back.
    void release();
    /// Bytes of memory held for the cache.
    std::size_t reportMemorySize() const { return m_memorySize; }

private:
    void seekChecked(int fd, FilePos pos);
    /// Bytes of the window at the position.
    unsigned available() const;
    unsigned readAt(int fd, FilePos pos, void* buf, unsigned n);
    bool provideMemory();

    int m_fd = -1;
    FilePos m_cacheStart = 0;
    unsigned m_cacheLength = 0;
    FilePos m_pos = 0;
    unsigned m_cacheSize;
    std::unique_ptr<unsigned char[]> m_memory;
    unsigned m_memorySize = 0;
    bool m_memoryWasFilled = false;
    bool m_directRead = false;
    AutoFileBuffer* m_parent;
    IKrxFileIo* m_io;
};

}  // namespace krx::util
