// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/vidlint/src/filefix.h"
#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "util/SRFileUtil.h"

#include <array>
#include <cstddef>
#include <vector>

class ZmvReader;

/// The corrected copy of an input, written from front to back and buffered. The signature is zeros until the
/// end, so an incomplete copy never passes for a whole one. The file is locked from before its old content is
/// removed until the object ends, so no other process writes to it. Throws StreamParseError
/// kCannotCreateFile.
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

    /// Writes the whole input with the fixes in it, which are sorted for that, and closes the file but keeps
    /// its lock. Only then is the copy whole. Throws kBoxTooLarge for a stretch without a fix above 2 GiB,
    /// and what the input throws.
    void splice(ZmvReader& input, std::vector<FileFix>& fixes);

private:
    void copyTo(ZmvReader& input, krx::util::FilePos end);
    void write(const unsigned char* bytes, std::size_t n);
    /// Writes the rest of the buffer and the signature.
    void finish();
    void flush();

    krx::util::SRAutoFile m_file;
    krx::util::SRAutoFile m_lock;  ///< the same open file, which keeps the lock after m_file is closed
    std::vector<unsigned char> m_buffer;
    std::array<unsigned char, kZmvSignature.size()> m_signature{};
    std::size_t m_held = 0;  ///< bytes that m_signature holds
};
