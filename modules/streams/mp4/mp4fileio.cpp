// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4fileio.h"

#include "interfaces/IKrxFileIo.h"
#include "modules/streams/mp4/mp4errors.h"
#include "util/bigendian.h"
#include "util/krxassert.h"

#include <algorithm>
#include <limits>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

constexpr const char* kMp4FileIoPlace = "modules/streams/mp4/mp4fileio";
constexpr int kReadIntLine = 214;

constexpr unsigned long long kMaxRead = 0x80000000ULL;
constexpr int kReadOnly = 0;
constexpr int kOpenMode = 256;

constexpr unsigned char kAudioMessage = 8;
constexpr unsigned char kVideoMessage = 9;

}  // namespace

Mp4FileIO::Mp4FileIO(const SRMBString& fileName, IKrxFileIo* io, int openFlags, const Mp4Config& config)
    : m_fileName(fileName),
      m_io(io),
      m_openFlags(openFlags),
      m_video(config.videoReadAheadSize, io),
      m_audio(config.audioReadAheadSize, io),
      m_other(config.otherReadAheadSize, io),
      m_window(io, config.otherReadAheadSize)
{
}

Mp4FileIO::~Mp4FileIO()
{
    Close();
}

int Mp4FileIO::Open()
{
    if (isOpen() || !m_io)
        return m_handle;
    // Looked at before it is opened: opening a pipe would wait for a writer.
    const SRString path(m_fileName);
    struct stat64 status = {};
    if (m_io->stat(path, &status, IKrxFileIo::kFile) < 0 || !S_ISREG(status.st_mode))
        return -1;
    m_handle = m_io->open(path, kReadOnly, kOpenMode, nullptr);
    return m_handle;
}

void Mp4FileIO::Close()
{
    if (!isOpen())
        return;
    m_video.flush();
    m_audio.flush();
    m_other.flush();
    m_window.release();
    m_io->close(m_handle, false);
    m_handle = -1;
}

unsigned Mp4FileIO::Read(void* dest, unsigned long long length)
{
    if (length > kMaxRead)
        throw StreamParseError(krx::streams::kBoxTooLarge);
    if (!isOpen() || m_position >= static_cast<unsigned long long>(Size()))
        return 0;
    const auto wanted = static_cast<unsigned>(length);
    if (const unsigned char* bytes = m_window.at(Tell(), wanted)) {
        std::copy_n(bytes, wanted, static_cast<unsigned char*>(dest));
        m_position += wanted;
        return wanted;
    }
    const unsigned got = m_other.indexedRead(m_handle, Tell(), dest, wanted, true, 0, kMp4FileIoPlace, true);
    m_position += got;
    if (got < wanted)
        throw StreamParseError(krx::streams::kFileReadError);
    return got;
}

const unsigned char* Mp4FileIO::lookAnew(long long position, unsigned n)
{
    if (!isOpen() || position >= Size())
        throw TruncatedStreamError(krx::streams::kTruncatedFile);
    const unsigned char* bytes = m_window.load(m_handle, position, n);
    if (!bytes)
        throw StreamParseError(krx::streams::kFileReadError);
    return bytes;
}

krx::util::AutoFileBuffer& Mp4FileIO::chooseBuffer(long long position, unsigned length,
                                                   unsigned char messageType)
{
    for (krx::util::AutoFileBuffer* buffer : {&m_video, &m_audio, &m_other})
        if (buffer->isInRange(position, length) == krx::util::AutoFileBuffer::Range::kInside)
            return *buffer;
    if (messageType == kAudioMessage)
        return m_audio;
    return messageType == kVideoMessage ? m_video : m_other;
}

unsigned Mp4FileIO::ReadMessage(void* dest, unsigned length, long long position, unsigned char messageType)
{
    if (!isOpen() || position < 0 || position >= Size())
        return 0;
    return chooseBuffer(position, length, messageType)
        .indexedRead(m_handle, position, dest, length, true, 0, kMp4FileIoPlace, true);
}

long long Mp4FileIO::Seek(long long offset, Origin origin)
{
    const long long size = Size();
    if (!isOpen() || size == 0)
        return -1;
    long long base = 0;
    switch (origin) {
        case kFromCurrent:
            base = Tell();
            break;
        case kFromStart:
            break;
        case kFromEnd:
            base = size;
            break;
        default:
            return -1;
    }
    // base lies in [0, size], so the comparisons cannot overflow.
    const long long position = offset > size - base ? size : std::max(base + offset, 0LL);
    m_position = static_cast<unsigned long long>(position);
    return position;
}

long long Mp4FileIO::Size(bool force)
{
    if ((m_size == 0 || force) && isOpen()) {
        struct stat64 status = {};
        if (m_io->fstat(m_handle, &status, IKrxFileIo::kFile) >= 0 && status.st_size >= 0)
            m_size = static_cast<unsigned long long>(status.st_size);
    }
    return static_cast<long long>(m_size);
}

unsigned long long Mp4FileIO::readInt(unsigned n)
{
    if (n > 8) {
        krx::util::assertFailed(kMp4FileIoPlace, kReadIntLine);
        return 0;
    }
    if (n == 0)
        return 0;
    unsigned char bytes[8] = {};
    if (Read(bytes + 8 - n, n) == 0)
        throw TruncatedStreamError(krx::streams::kTruncatedFile);
    return krx::util::loadBigEndian<unsigned long long>(bytes);
}

unsigned Mp4FileIO::GetModifiedTime() const
{
    struct stat64 status = {};
    if (!m_io || m_io->stat(SRString(m_fileName), &status, IKrxFileIo::kFile) < 0)
        return 0;
    const long long seconds = status.st_mtime;
    return seconds < 0 || seconds > std::numeric_limits<unsigned>::max() ? 0 : static_cast<unsigned>(seconds);
}

void Mp4FileIO::FlushMemory()
{
    m_video.release();
    m_audio.release();
    m_other.release();
    m_window.release();
}

bool Mp4FileIO::Unlink()
{
    return m_io && m_io->remove(SRString(m_fileName), IKrxFileAdaptor::kRemoveFile, false) >= 0;
}

std::size_t Mp4FileIO::reportMemorySize() const
{
    return sizeof(*this) + m_fileName.size() + m_video.reportMemorySize() + m_audio.reportMemorySize() +
           m_other.reportMemorySize() + m_window.reportMemorySize();
}

AutoMp4Open::AutoMp4Open(Mp4FileIO* io) : m_io(io), m_opened(false)
{
    if (m_io && !m_io->isOpen())
        m_opened = m_io->Open() >= 0;
}

AutoMp4Open::~AutoMp4Open()
{
    if (m_opened)
        m_io->Close();
}

bool AutoMp4Open::isOpen() const
{
    return m_io && m_io->isOpen();
}

}  // namespace krx::mp4
