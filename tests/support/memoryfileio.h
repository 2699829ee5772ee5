// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IKrxFileIo.h"
#include "util/SRString.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace krx::test {

/// One file in memory, under any path. Counts the reads and can let one of them fail.
class MemoryFileIo : public IKrxFileIo
{
public:
    explicit MemoryFileIo(std::string bytes = {}) : m_bytes(std::move(bytes)) {}

    std::string& bytes() { return m_bytes; }
    int readCount() const { return m_readCount; }
    bool isOpen() const { return m_openCount != 0; }
    /// The n-th read from now on (1-based) fails with -1, as do those behind it.
    void failReadsFrom(int n) { m_failFrom = m_readCount + n; }
    /// Whether it can be opened from now on.
    void allowOpen(bool allowed) { m_mayOpen = allowed; }

    int open(const SRString&, int, int, struct stat64* st) override
    {
        if (!m_mayOpen)
            return -1;
        ++m_openCount;
        if (st)
            fill(*st);
        return kDescriptor;
    }
    int close(int, bool) override
    {
        --m_openCount;
        return 0;
    }
    int read(int fd, long long offset, void* buf, unsigned n) override
    {
        ++m_readCount;
        if (fd != kDescriptor || offset < 0 || (m_failFrom != 0 && m_readCount >= m_failFrom))
            return -1;
        const auto start = std::min(static_cast<std::size_t>(offset), m_bytes.size());
        const std::size_t count = std::min<std::size_t>(n, m_bytes.size() - start);
        std::memcpy(buf, m_bytes.data() + start, count);
        return static_cast<int>(count);
    }
    int write(int, long long, void*, unsigned) override { return -1; }
    int fstat(int, struct stat64* st, Mode mode) override { return stat(SRString(), st, mode); }
    int stat(const SRString&, struct stat64* st, Mode mode) override
    {
        fill(*st);
        return mode == kDirectory ? -1 : 0;
    }
    int remove(const SRString&, IKrxFileAdaptor::RemoveFlags, bool) override { return -1; }
    int createDir(const SRString&) override { return -1; }
    int readDir(const SRString&, std::vector<SRString>&) override { return -1; }

private:
    static constexpr int kDescriptor = 3;

    void fill(struct stat64& st) const
    {
        st = {};
        st.st_mode = S_IFREG | 0644;
        st.st_size = static_cast<off64_t>(m_bytes.size());
    }

    std::string m_bytes;
    int m_openCount = 0;
    int m_readCount = 0;
    int m_failFrom = 0;
    bool m_mayOpen = true;
};

}  // namespace krx::test
