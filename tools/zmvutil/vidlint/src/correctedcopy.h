// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "util/SRFileUtil.h"

#include <array>
#include <cstddef>
#include <vector>

class ZmvReader;

/// The file that takes the corrected copy of an input: written from front to back, buffered, and last the
/// signature, until then zeros. So nothing takes a part for a whole copy, however the writing ended. The file
/// is locked from before its old content goes until the object ends, so that no other process writes to it
/// meanwhile. Throws StreamParseError kCannotCreateFile.
class CorrectedCopy
{
public:
    /// Creates the file, or overwrites a regular file that is not the input under another name and that
    /// nobody has locked (flock). A file system without locks does not hinder the copy.
    CorrectedCopy(const SRString& path, const ZmvReader& input);
    /// What was written before a failure stays on the disk.
    ~CorrectedCopy();
    CorrectedCopy(const CorrectedCopy&) = delete;
    CorrectedCopy& operator=(const CorrectedCopy&) = delete;

    void write(const unsigned char* bytes, std::size_t n);
    /// Writes what is still buffered and the signature, and closes the file but for its lock; only then is
    /// the copy whole.
    void finish();

private:
    void flush();

    krx::util::SRAutoFile m_file;
    krx::util::SRAutoFile m_lock;  ///< the same open file, which keeps the lock after m_file is closed
    std::vector<unsigned char> m_buffer;
    std::array<unsigned char, kZmvSignature.size()> m_signature{};
    std::size_t m_held = 0;  ///< bytes that m_signature holds
};
