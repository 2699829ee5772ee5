// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/fileholes.h"

#include <cerrno>
#include <unistd.h>

namespace krx::util {

bool FileHoles::hasHole()
{
    if (m_firstHole < 0) {
        const FilePos hole = SRFileUtil::lseek(m_fd, 0, SEEK_HOLE);
        m_firstHole = hole >= 0 && hole < m_size ? hole : m_size;
        m_end = m_firstHole;
    }
    return m_firstHole < m_size;
}

bool FileHoles::isData(FilePos pos, FilePos n)
{
    if (n <= 0 || !hasHole() || (pos >= m_start && pos <= m_end && n <= m_end - pos))
        return true;
    const FilePos data = SRFileUtil::lseek(m_fd, pos, SEEK_DATA);
    if (data < 0)
        return errno != ENXIO;  // no data up to the end
    if (data > pos)
        return false;
    const FilePos end = SRFileUtil::lseek(m_fd, pos, SEEK_HOLE);
    if (end < 0)
        return true;
    m_start = pos;
    m_end = end;
    return n <= m_end - pos;
}

}  // namespace krx::util
