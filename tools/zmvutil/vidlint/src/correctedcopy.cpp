// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/correctedcopy.h"

#include "modules/streams/streamparseerror.h"
#include "tools/zmvutil/vidlint/src/zmvreader.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <span>
#include <sys/file.h>

using krx::streams::StreamParseError;
using krx::util::SRFileUtil;

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr int kCreateForAll = 0x80;

/// No stretch that is copied unchanged may be longer, bytes.
constexpr krx::util::FilePos kMaxStretch = 0x80000000;

void require(bool condition)
{
    if (!condition)
        throw StreamParseError(krx::streams::kCannotCreateFile);
}

/// False when somebody else has the lock. A file system without locks is no hindrance.
bool lockForWriting(int fd)
{
    int result = 0;
    do
        result = ::flock(fd, LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    return result == 0 || errno != EWOULDBLOCK;
}

void writeAll(int fd, const unsigned char* bytes, std::size_t n)
{
    require(SRFileUtil::writeUntilDone(fd, bytes, n) == static_cast<ssize_t>(n));
}

}  // namespace

CorrectedCopy::CorrectedCopy(const SRString& path, const ZmvReader& input)
    : m_file(SRFileUtil::open(path, O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kCreateForAll))
{
    // The name may be a link to the input: nothing is cut off before that is ruled out.
    struct stat64 st
    {
    };
    require(m_file.get() >= 0 && ::fstat64(m_file.get(), &st) == 0);
    require(S_ISREG(st.st_mode) && !input.isSameFile(st));
    require(lockForWriting(m_file.get()));
    // m_file is closed to learn whether all was written; m_lock keeps the lock.
    (void)m_lock.reset(::fcntl(m_file.get(), F_DUPFD_CLOEXEC, 0));
    require(m_lock.get() >= 0);
    require(SRFileUtil::chsize(m_file.get(), 0) == 0);
    m_buffer.reserve(kBufferSize);
}

CorrectedCopy::~CorrectedCopy()
{
    if (m_file.get() >= 0)
        (void)SRFileUtil::writeUntilDone(m_file.get(), m_buffer.data(), m_buffer.size());
}

void CorrectedCopy::splice(ZmvReader& input, std::vector<FileFix>& fixes)
{
    sortFixes(fixes);
    input.seek(0);
    for (const FileFix& fix : fixes) {
        copyTo(input, fix.position);
        write(fix.data.get(), fix.size);
        input.seek(input.position() + fix.replaceLength);
    }
    copyTo(input, input.length());
    finish();
}

void CorrectedCopy::copyTo(ZmvReader& input, krx::util::FilePos end)
{
    krx::util::FilePos n = end - input.position();
    if (n > kMaxStretch)
        throw StreamParseError(krx::streams::kBoxTooLarge);
    while (n > 0) {
        const std::span<const unsigned char> bytes = input.takeSome(n);
        write(bytes.data(), bytes.size());
        n -= static_cast<krx::util::FilePos>(bytes.size());
    }
}

void CorrectedCopy::write(const unsigned char* bytes, std::size_t n)
{
    const std::size_t held = std::min(n, m_signature.size() - m_held);
    std::copy_n(bytes, held, m_signature.begin() + static_cast<std::ptrdiff_t>(m_held));
    m_buffer.insert(m_buffer.end(), held, 0);
    m_held += held;
    bytes += held;
    n -= held;

    if (n > kBufferSize - m_buffer.size())
        flush();
    if (n >= kBufferSize)
        writeAll(m_file.get(), bytes, n);
    else
        m_buffer.insert(m_buffer.end(), bytes, bytes + n);
}

void CorrectedCopy::finish()
{
    flush();
    require(SRFileUtil::lseek(m_file.get(), 0, SEEK_SET) == 0);
    writeAll(m_file.get(), m_signature.data(), m_held);
    require(m_file.reset() == 0);
}

void CorrectedCopy::flush()
{
    writeAll(m_file.get(), m_buffer.data(), m_buffer.size());
    m_buffer.clear();
}
