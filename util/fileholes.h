// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

namespace krx::util {

/// Which parts of a file hold data. A download that reserves its space leaves holes where bytes have not
/// arrived yet; they read as zeros. Holes are known in blocks of the file system, mostly 4 KiB: the edges of
/// one may count as data. A file system that tells of no holes has none.
class FileHoles
{
public:
    /// fd is not owned; its offset moves, and a descriptor that cannot be sought in has no holes. size: of
    /// the file, in bytes.
    FileHoles(int fd, FilePos size) : m_fd(fd), m_size(size) {}

    /// Whether there is a hole before the end. One system call, however often it is asked.
    bool hasHole();
    /// Whether the n bytes at pos, which lie inside the file, are all data. The stretch of data that was
    /// found last is kept, so that neighbours cost no system call.
    bool isData(FilePos pos, FilePos n);

private:
    int m_fd;
    FilePos m_size;
    FilePos m_firstHole = -1;  ///< m_size when there is none, -1 when not known
    FilePos m_start = 0;       ///< of the stretch
    FilePos m_end = 0;
};

}  // namespace krx::util
