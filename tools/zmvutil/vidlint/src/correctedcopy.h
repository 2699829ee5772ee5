// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRFileUtil.h"

#include <cstddef>
#include <vector>

class ZmvReader;

/// The file that takes the corrected copy of an input: written from front to back, buffered. Throws
/// StreamParseError kCannotCreateFile.
class CorrectedCopy
{
public:
    /// Creates the file, or overwrites a regular file that is not the input under another name.
    CorrectedCopy(const SRString& path, const ZmvReader& input);
    /// What was written before a failure stays on the disk.
    ~CorrectedCopy();
    CorrectedCopy(const CorrectedCopy&) = delete;
    CorrectedCopy& operator=(const CorrectedCopy&) = delete;

    void write(const unsigned char* bytes, std::size_t n);
    /// Writes what is still buffered and closes the file; only then is the copy whole.
    void finish();

private:
    void flush();

    krx::util::SRAutoFile m_file;
    std::vector<unsigned char> m_buffer;
};
