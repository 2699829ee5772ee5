// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/filewindow.h"

#include "interfaces/IKrxFileIo.h"

#include <algorithm>

namespace krx::mp4 {

using krx::util::FilePos;

FileWindow::FileWindow(IKrxFileIo* io, unsigned smallest) : m_io(io), m_smallest(std::min(smallest, kLargest))
{
}

const unsigned char* FileWindow::load(int handle, FilePos pos, unsigned n)
{
    const bool goesOn = m_length != 0 && pos >= m_start && pos - m_start <= m_length;
    const FilePos used = m_length == 0 ? 0 : m_start + m_used - m_stretch;
    const auto wanted = std::clamp<FilePos>(2 * (goesOn ? m_size : used), m_smallest, kLargest);
    m_size = std::max(static_cast<unsigned>(wanted), n);
    if (!goesOn)
        m_stretch = pos;
    m_start = pos;
    m_length = 0;
    m_used = 0;
    if (m_capacity < m_size) {
        m_bytes.reset();
        m_capacity = 0;
        m_bytes = std::make_unique_for_overwrite<unsigned char[]>(m_size);
        m_capacity = m_size;
    }
    do {
        const int got = m_io->read(handle, pos + m_length, m_bytes.get() + m_length, m_size - m_length);
        if (got <= 0)
            return nullptr;
        m_length += std::min(static_cast<unsigned>(got), m_size - m_length);
    } while (m_length < n);
    m_used = n;
    return m_bytes.get();
}

void FileWindow::release()
{
    m_bytes.reset();
    m_capacity = 0;
    m_length = 0;
}

}  // namespace krx::mp4
