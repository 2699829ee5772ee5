// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace krx::bench {

/// Writes big-endian fields to a file through one large buffer. Throws std::runtime_error when the file
/// cannot be written.
class BulkWriter
{
public:
    explicit BulkWriter(const std::string& path);

    void u8(std::uint8_t value) { put(value, 1); }
    void u16(std::uint16_t value) { put(value, 2); }
    void u24(std::uint32_t value) { put(value, 3); }
    void u32(std::uint32_t value) { put(value, 4); }
    void u64(std::uint64_t value) { put(value, 8); }
    void bytes(const void* data, std::size_t n);
    /// Writes n bytes of filler.
    void fill(std::uint64_t n);
    /// Leaves a hole of n bytes.
    void skip(std::uint64_t n);
    std::uint64_t position() const { return m_written + m_buffer.size(); }
    /// Writes out what is left.
    void finish();

private:
    void put(std::uint64_t value, int width);
    void flush();

    std::string m_path;
    std::ofstream m_file;
    std::vector<char> m_buffer;
    std::uint64_t m_written = 0;
};

}  // namespace krx::bench
