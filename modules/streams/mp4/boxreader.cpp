// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxreader.h"

#include "modules/streams/mp4/mp4errors.h"

#include <array>
#include <iostream>
#include <limits>
#include <string_view>

namespace krx::mp4 {
namespace {

using krx::streams::ParseStatus;
using krx::streams::Place;
using krx::streams::StreamParseError;
using krx::util::FilePos;

/// Containers inside each other. Real files need about ten; each level costs stack.
constexpr std::size_t kMaxNesting = 128;

constexpr int kWarningsAbove = 2;
constexpr int kInfoAbove = 4;

/// Appends the name of fourCCName in UTF-8.
void appendName(std::string& text, unsigned type)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        const unsigned byte = type >> shift & 0xFF;
        if (byte < 0x80) {
            text += byte != 0 ? static_cast<char>(byte) : '.';
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
}

void writeToStandardOutput(std::string_view text)
{
    std::cout << text;
}

}  // namespace

BoxReader::BoxReader(const Mp4Config& config) : m_config(config), m_lineSink(writeToStandardOutput) {}

void BoxReader::start(FilePos pos)
{
    m_fileSize = m_file->Size();
    skipTo(pos);
}

void BoxReader::read(void* buffer, unsigned long long n)
{
    if (n == 0)
        return;
    if (n <= FileWindow::kLargest) {
        std::copy_n(take(static_cast<unsigned>(n)), n, static_cast<unsigned char*>(buffer));
        return;
    }
    m_file->Seek(m_position, Mp4FileIO::kFromStart);
    if (m_file->Read(buffer, n) == 0)
        throw TruncatedStreamError(krx::streams::kTruncatedFile);
    m_position += static_cast<FilePos>(n);
}

BoxHeader BoxReader::readHeader(const BoxHeader& parent, ParseStatus notPositive)
{
    constexpr auto kMaxSize = static_cast<unsigned long long>(std::numeric_limits<FilePos>::max());
    BoxHeader box;
    box.start = m_position;
    const auto start = static_cast<unsigned long long>(box.start);
    unsigned long long size = readU32();
    unsigned headerSize = kBoxHeaderSize;
    box.type = readU32();
    if (size == 1) {
        size = readU64();
        headerSize = kLargeBoxHeaderSize;
    } else if (size == 0) {
        size = bytesLeft(m_fileSize) + kBoxHeaderSize;
    }
    if (size == 0 || size > kMaxSize)
        failAt(box.start, notPositive);
    if (size < headerSize || size > kMaxSize - start)
        failAt(box.start, krx::streams::kTruncatedBox);
    box.size = static_cast<FilePos>(size);
    box.end = box.start + box.size;

    if (m_logLevel > kInfoAbove)
        logHeader(box);
    if (box.end > parent.end) {
        // Media data cut short still plays up to there.
        if (box.type != fourCC("mdat") || parent.end != m_fileSize)
            failAt(box.start, krx::streams::kTruncatedBox);
        inside(box, 0, [&] { warn(krx::streams::kTruncatedBox); });
    }
    return box;
}

bool BoxReader::skipToBox(unsigned type, FilePos end)
{
    constexpr FilePos kChunk = 4096;
    constexpr FilePos kOverlap = 3;
    std::array<char, kChunk + kOverlap> chunk;
    std::string code(4, '\0');
    for (unsigned i = 0; i < 4; ++i)
        code[i] = static_cast<char>(type >> (24 - 8 * i));

    FilePos pos = m_position;
    if (end - pos < kBoxHeaderSize)
        return false;
    while (pos < end) {
        // A type may start at every position before end, so the last ones reach beyond it.
        const FilePos wanted = std::min(kChunk, end - pos) + kOverlap;
        const FilePos there = std::min(wanted, m_fileSize - pos);
        if (there <= 0)
            throw TruncatedStreamError(krx::streams::kTruncatedFile);
        read(chunk.data(), static_cast<std::size_t>(there));
        const std::size_t found = std::string_view(chunk.data(), static_cast<std::size_t>(there)).find(code);
        if (found != std::string_view::npos) {
            // The size stands in front of the type.
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

void BoxReader::checkNesting() const
{
    if (m_open.size() > kMaxNesting)
        throw StreamParseError(krx::streams::kTruncatedBox);
}

Place BoxReader::placeAt(FilePos offset) const
{
    Place place;
    place.offset = offset;
    place.track = m_trackId;
    for (const Open& box : m_open) {
        if (!place.path.empty())
            place.path += '/';
        appendName(place.path, box.type);
        if (box.number != 0)
            place.path += '[' + std::to_string(box.number) + ']';
    }
    return place;
}

void BoxReader::failAt(FilePos offset, ParseStatus status) const
{
    StreamParseError error(status);
    error.setPlace(placeAt(offset));
    throw error;
}

void BoxReader::addPlace(StreamParseError& error) const
{
    if (!error.hasPlace())
        error.setPlace(placeAt(m_open.empty() ? m_position : m_open.back().start));
}

void BoxReader::warn(ParseStatus status)
{
    warnOf([&] {
        StreamParseError warning(status);
        addPlace(warning);
        return warning;
    });
}

void BoxReader::warnAt(FilePos offset, ParseStatus status)
{
    warnOf([&] {
        StreamParseError warning(status);
        warning.setPlace(placeAt(offset));
        return warning;
    });
}

void BoxReader::warnAboutBox(ParseStatus status, const BoxHeader& box)
{
    warnOf([&] {
        StreamParseError warning = krx::streams::makeParseError(status, box.getBoxName());
        const bool isOpen = !m_open.empty() && m_open.back().start == box.start;
        if (isOpen)
            addPlace(warning);
        else
            inside(box, 0, [&] { addPlace(warning); });
        return warning;
    });
}

void BoxReader::warnAboutBox(const StreamParseError& fault, const BoxHeader& box)
{
    warnOf([&] {
        StreamParseError warning = krx::streams::makeParseError(fault.getStatus(), box.getBoxName());
        warning.setPlace(fault.place());
        return warning;
    });
}

void BoxReader::logWarning(const StreamParseError& warning)
{
    deliver(warning, askSink());
}

/// Whether a warning goes anywhere. admitted: the sink takes it.
bool BoxReader::isUsed(bool admitted) const
{
    return admitted || m_warningsAsErrors || m_logLevel > kWarningsAbove;
}

void BoxReader::deliver(const StreamParseError& warning, bool admitted) const
{
    if (admitted)
        m_findingSink->add(krx::streams::makeFinding(warning, krx::streams::FindingLevel::kWarning));
    if (m_warningsAsErrors) {
        StreamParseError error(warning.getStatus(), warning.getMessage());
        error.setPlace(warning.place());
        throw error;
    }
    if (m_logLevel > kWarningsAbove)
        printLine("Warning:\t" + std::string(warning.getMessage().toMultiByte().view()) + "\t" +
                  std::string(m_file ? m_file->GetFileName().view() : std::string_view()) + "\n\n");
}

void BoxReader::logInfo(const std::string& text) const
{
    if (m_logLevel > kInfoAbove)
        printLine(text);
}

void BoxReader::printLine(std::string_view text) const
{
    if (m_lineSink)
        m_lineSink(text);
}

void BoxReader::logHeader(const BoxHeader& box) const
{
    std::string path;
    for (const Open& open : m_open) {
        appendName(path, open.type);
        path += '/';
    }
    appendName(path, box.type);
    logInfo(path + "/\t" + std::to_string(box.size) + "\n");
}

}  // namespace krx::mp4
