// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/bulkwriter.h"

#include <algorithm>
#include <stdexcept>

namespace krx::bench {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;

}  // namespace

BulkWriter::BulkWriter(const std::string& path)
    : m_path(path), m_file(path, std::ios::binary | std::ios::trunc)
{
    if (!m_file)
        throw std::runtime_error("cannot create " + path);
    m_buffer.reserve(kBufferSize);
}

void BulkWriter::put(std::uint64_t value, int width)
{
    if (m_buffer.size() + 8 > kBufferSize)
        flush();
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        m_buffer.push_back(static_cast<char>(value >> shift));
}

void BulkWriter::bytes(const void* data, std::size_t n)
{
    const char* from = static_cast<const char*>(data);
    while (n > 0) {
        if (m_buffer.size() == kBufferSize)
            flush();
        const std::size_t part = std::min(n, kBufferSize - m_buffer.size());
        m_buffer.insert(m_buffer.end(), from, from + part);
        from += part;
        n -= part;
    }
}

void BulkWriter::fill(std::uint64_t n)
{
    while (n > 0) {
        if (m_buffer.size() == kBufferSize)
            flush();
        const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(n, kBufferSize - m_buffer.size()));
        m_buffer.insert(m_buffer.end(), part, static_cast<char>(m_written >> 20 | 1));
        n -= part;
    }
}

void BulkWriter::skip(std::uint64_t n)
{
    flush();
    m_file.seekp(static_cast<std::streamoff>(n), std::ios::cur);
    m_written += n;
}

void BulkWriter::flush()
{
    m_file.write(m_buffer.data(), static_cast<std::streamsize>(m_buffer.size()));
    m_written += m_buffer.size();
    m_buffer.clear();
}

void BulkWriter::finish()
{
    flush();
    m_file.close();
    if (!m_file)
        throw std::runtime_error("cannot write " + m_path);
}

}  // namespace krx::bench
