// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4.h"

#include "modules/streams/mp4/mp4boxrules.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "util/SRBuffer.h"
#include "util/krxassert.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <limits>
#include <string_view>

namespace krx::mp4 {
namespace {

using krx::streams::ParseStatus;
using krx::streams::StreamParseError;
using krx::util::FilePos;

constexpr const char* kFile = "modules/streams/mp4/mp4";
constexpr int kNoReaderLine = 412;

/// Containers inside each other. Real files need about ten; each level costs stack.
constexpr std::size_t kMaxNesting = 128;

constexpr int kWarningsAbove = 2;
constexpr int kInfoAbove = 4;

}  // namespace

MP4File::MP4File(const Mp4Config& config, IQVStreamContext* context) : m_config(config), m_context(context) {}

MP4File::~MP4File() = default;

void MP4File::parse(long long start)
{
    if (!m_io) {
        krx::util::assertFailed(kFile, kNoReaderLine);
        return;
    }
    if (start == 0)
        checkForZMV();
    BoxHeader root;
    root.start = start;
    root.end = m_io->Size();
    root.size = root.end - start;
    m_memory.setFileSize(root.end);
    skipTo(start);
    parseBoxes(root);
    if (!m_movieSeen)
        throw StreamParseError(krx::streams::kNoMovieBox);
    numberContexts();
}

void MP4File::checkForZMV()
{
    std::array<char, 3> signature{};
    skipTo(0);
    read(signature.data(), signature.size());
    if (std::string_view(signature.data(), signature.size()) == "ZMV")
        throw StreamParseError(krx::streams::kZmvWithWrongExtension);
    skipTo(0);
}

void MP4File::parseBoxes(const BoxHeader& parent)
{
    if (m_openBoxes.size() > kMaxNesting)
        throw StreamParseError(krx::streams::kTruncatedBox);
    while (curPos() < parent.end) {
        if (bytesLeft(parent.end) < kBoxHeaderSize) {
            warn(krx::streams::kExtraneousBytes);
            skipTo(parent.end);
            return;
        }
        const BoxHeader box = parseBoxHeader(parent);
        tryParseBox(box);
        skipTo(box.end);
    }
}

/// notPositive is the error of a size that, read as a signed number, is not positive.
BoxHeader MP4File::parseBoxHeader(const BoxHeader& parent, ParseStatus notPositive)
{
    constexpr auto kMaxSize = static_cast<unsigned long long>(std::numeric_limits<FilePos>::max());
    BoxHeader box;
    box.start = curPos();
    const auto start = static_cast<unsigned long long>(box.start);
    unsigned long long size = readU32();
    unsigned headerSize = kBoxHeaderSize;
    box.type = readU32();
    if (size == 1) {
        size = readU64();
        headerSize = kLargeBoxHeaderSize;
    } else if (size == 0) {
        size = bytesLeft(m_io->Size()) + kBoxHeaderSize;
    }
    if (size == 0 || size > kMaxSize)
        throw StreamParseError(notPositive);
    if (size < headerSize || size > kMaxSize - start)
        throw StreamParseError(krx::streams::kTruncatedBox);
    box.size = static_cast<FilePos>(size);
    box.end = box.start + box.size;

    if (m_logLevel > kInfoAbove) {
        SRString path;
        for (const unsigned type : m_openBoxes)
            path += (BoxHeader{0, 0, 0, type}.getBoxName() + L"/").view();
        path += (box.getBoxName() + L"/").view();
        logInfo(std::string(path.toMultiByte().view()) + "\t" + std::to_string(box.size) + "\n");
    }
    if (box.end > parent.end) {
        // Media data cut short still plays up to there.
        if (box.type != fourCC("mdat") || parent.end != m_io->Size())
            throw StreamParseError(krx::streams::kTruncatedBox);
        warn(krx::streams::kTruncatedBox);
    }
    return box;
}

void MP4File::tryParseBox(const BoxHeader& box)
{
    try {
        parseBox(box);
    } catch (const UnrecognizedBoxError& e) {
        warnAboutBox(e.getStatus(), box);
    }
}

void MP4File::parseBox(const BoxHeader& box)
{
    const BoxRule* rule = findRule(box.type);
    if (!rule) {
        // Reported directly: unknown boxes are too common for an exception each.
        warnAboutBox(krx::streams::kUnrecognizedBox, box);
        return;
    }
    if (!rule->handler)
        return;
    if (rule->place == BoxRule::kInTrack)
        verifyCurrentTrack();
    const OpenBox open(m_openBoxes, box.type);
    (this->*rule->handler)(box);
}

/// Dispatches the first child of that type; false when there is none.
bool MP4File::scanAndParse(const BoxHeader& parent, unsigned type)
{
    while (curPos() < parent.end && bytesLeft(parent.end) >= kBoxHeaderSize) {
        const BoxHeader box = parseBoxHeader(parent);
        if (box.type == type) {
            tryParseBox(box);
            return true;
        }
        skipTo(box.end);
    }
    return false;
}

/// Finds a box by its type alone, at whatever byte before end it starts. On success the position is that of
/// the size field in front of the type.
bool MP4File::skipToBox(unsigned type, FilePos end)
{
    constexpr FilePos kChunk = 4096;
    constexpr FilePos kOverlap = 3;
    std::array<char, kChunk + kOverlap> chunk;
    std::string code(4, '\0');
    for (unsigned i = 0; i < 4; ++i)
        code[i] = static_cast<char>(type >> (24 - 8 * i));

    FilePos pos = curPos();
    if (end - pos < kBoxHeaderSize)
        return false;
    while (pos < end) {
        // A type may start at every position before end, so the last ones reach beyond it.
        const FilePos wanted = std::min(kChunk, end - pos) + kOverlap;
        const FilePos there = std::min(wanted, m_io->Size() - pos);
        if (there <= 0)
            throw TruncatedStreamError(krx::streams::kTruncatedFile);
        read(chunk.data(), static_cast<std::size_t>(there));
        const std::size_t found = std::string_view(chunk.data(), static_cast<std::size_t>(there)).find(code);
        if (found != std::string_view::npos) {
            skipTo(pos + static_cast<FilePos>(found) - 4);
            return true;
        }
        if (there < wanted)
            throw StreamParseError(krx::streams::kFileReadError);
        pos += wanted - kOverlap;
        skipTo(pos);
    }
    return false;
}

void MP4File::verifyCurrentTrack() const
{
    if (!m_curTrack)
        throw StreamParseError(krx::streams::kBadBoxHierarchy);
}

void MP4File::verifyUniqueBox(bool alreadySeen)
{
    if (alreadySeen)
        throw StreamParseError(krx::streams::kDuplicateBox);
}

void MP4File::verifyVersion(unsigned version, int highest)
{
    if (static_cast<int>(version) > highest)
        throw UnrecognizedBoxError(krx::streams::kUnrecognizedBoxVersion);
}

/// Reads the version, which must be one that the box's rule allows, and passes over the flags.
unsigned MP4File::parseVersion(const BoxHeader& box)
{
    const unsigned version = readU8();
    const BoxRule* rule = findRule(box.type);
    verifyVersion(version, rule ? rule->highestVersion : 0);
    skip(3);
    return version;
}

void MP4File::warn(ParseStatus status)
{
    if (!isSilent())
        logWarning(StreamParseError(status));
}

void MP4File::warnAboutBox(ParseStatus status, const BoxHeader& box)
{
    if (!isSilent())
        logWarning(krx::streams::makeParseError(status, box.getBoxName()));
}

void MP4File::logWarning(const StreamParseError& warning)
{
    if (m_warningObserver)
        m_warningObserver(warning);
    if (m_warningsAsErrors)
        throw StreamParseError(warning.getStatus(), warning.getMessage());
    if (m_logLevel > kWarningsAbove)
        std::cout << "Warning:\t" << warning.getMessage() << "\t"
                  << (m_io ? m_io->GetFileName() : SRMBString()) << "\n\n";
}

void MP4File::logInfo(const std::string& text)
{
    if (m_logLevel > kInfoAbove)
        std::cout << text;
}

FilePos MP4File::curPos() const
{
    return m_io->Tell();
}

void MP4File::skip(long long n)
{
    m_io->Seek(n, Mp4FileIO::kFromCurrent);
}

void MP4File::skipTo(FilePos pos)
{
    m_io->Seek(pos, Mp4FileIO::kFromStart);
}

void MP4File::read(void* buffer, unsigned long long n)
{
    if (n != 0 && m_io->Read(buffer, n) == 0)
        throw TruncatedStreamError(krx::streams::kTruncatedFile);
}

unsigned char MP4File::readU8()
{
    return static_cast<unsigned char>(m_io->readInt(1));
}

unsigned short MP4File::readU16()
{
    return static_cast<unsigned short>(m_io->readInt(2));
}

unsigned MP4File::readU24()
{
    return static_cast<unsigned>(m_io->readInt(3));
}

unsigned MP4File::readU32()
{
    return static_cast<unsigned>(m_io->readInt(4));
}

unsigned long long MP4File::readU64()
{
    return m_io->readInt(8);
}

/// Bytes between the position and end; 0 beyond it.
unsigned long long MP4File::bytesLeft(FilePos end) const
{
    return static_cast<unsigned long long>(std::max(end - curPos(), 0LL));
}

std::size_t MP4File::reportMemorySize() const
{
    std::size_t bytes =
        sizeof(*this) + m_openBoxes.capacity() * sizeof(unsigned) +
        m_freeBoxesInMoov.size() * kDequeElement<FreeSpace> + m_tags.size() * kDequeElement<TagEntry> +
        m_chapters.size() * kDequeElement<ChapterEntry> + m_texts.reportMemorySize() +
        m_progressive.capacity() * sizeof(ProgressiveEntry) + m_tracks.capacity() * sizeof(m_tracks[0]) +
        m_tracksById.size() * sizeof(decltype(m_tracksById)::value_type);
    for (const auto& track : m_tracks)
        bytes += track->reportMemorySize();
    return bytes + (m_xmp ? sizeof(SRMemory) + m_xmp->capacity() : 0);
}

}  // namespace krx::mp4
