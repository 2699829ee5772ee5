// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4boxrules.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "util/SRBuffer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

// Metadata boxes: item lists, string tags, chapters, progressive download, XMP.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

constexpr unsigned kHeaderSize = 8;

// Well-known types of a 'data' box.
constexpr unsigned kImplicit = 0;
constexpr unsigned kText = 1;
constexpr unsigned kJpeg = 13;
constexpr unsigned kPng = 14;
constexpr unsigned kInteger = 21;

constexpr unsigned kMaxTextLength = 65535;
constexpr unsigned kMaxImageLength = 4194304;
constexpr unsigned kMaxIntegers = 1024;

/// BE7ACFCB-97A9-42E8-9C71-999491E3AFAC
constexpr unsigned long long kXmpIdHigh = 0xBE7ACFCB97A942E8ULL;
constexpr unsigned long long kXmpIdLow = 0x9C71999491E3AFACULL;

}  // namespace

void MP4File::parseMetadata(const BoxHeader& box)
{
    skip(4);  // version, flags
    const krx::util::FilePos children = curPos();
    bool supported = true;
    try {
        parseBoxHeader(box);
    } catch (const StreamParseError&) {
        supported = false;
    }
    if (!supported) {
        warn(krx::streams::kUnsupportedMetadata);
        return;
    }
    skipTo(children);
    parseBoxes(box);
}

void MP4File::parseItunesMetadata(const BoxHeader& box)
{
    while (bytesLeft(box.end) >= kHeaderSize) {
        const BoxHeader item = parseBoxHeader(box, krx::streams::kInvalidEntryCount);
        if (!item.isFreeBox()) {
            const OpenBox open(m_openBoxes, item.type);
            while (bytesLeft(item.end) >= kHeaderSize)
                parseItunesDataTag(item);
        }
        skipTo(item.end);
    }
}

/// Reads one box of an item and stands behind it afterwards.
void MP4File::parseItunesDataTag(const BoxHeader& item)
{
    const BoxHeader data = parseBoxHeader(item);
    if (data.type != fourCC("data") || bytesLeft(data.end) < kHeaderSize) {
        skipTo(data.end);
        return;
    }
    TagEntry tag;
    tag.itemType = item.type;
    tag.dataType = readU32();
    if (item.type == fourCC("purl") || item.type == fourCC("egid"))
        tag.dataType = kText;
    skip(4);  // locale
    const unsigned long long length = bytesLeft(data.end);
    switch (tag.dataType) {
        case kText:
            tag.textLength = static_cast<unsigned>(std::min<unsigned long long>(length, kMaxTextLength));
            tag.text = readText(tag.textLength);
            break;
        case kJpeg:
        case kPng:
            tag.binaryLength = static_cast<unsigned>(std::min<unsigned long long>(length, kMaxImageLength));
            if (tag.binaryLength != 0) {
                tag.binary = std::shared_ptr<unsigned char[]>(new unsigned char[tag.binaryLength]);
                read(tag.binary.get(), tag.binaryLength);
            }
            break;
        case kImplicit:
        case kInteger: {
            const unsigned width = item.type == fourCC("trkn") || item.type == fourCC("disk") ? 2 : 4;
            tag.integerCount = static_cast<unsigned>(
                std::min<unsigned long long>(length / width + (length % width != 0), kMaxIntegers));
            if (tag.integerCount != 0)
                tag.integers = std::shared_ptr<unsigned[]>(new unsigned[tag.integerCount]);
            for (unsigned i = 0; i < tag.integerCount; ++i) {
                const auto n =
                    static_cast<unsigned>(std::min<unsigned long long>(width, bytesLeft(data.end)));
                tag.integers[i] = static_cast<unsigned>(m_io->readInt(n));
            }
            break;
        }
        default:
            break;
    }
    m_tags.push_back(std::move(tag));
    skipTo(data.end);
}

void MP4File::parseStringTag(const BoxHeader& box)
{
    if (bytesLeft(box.end) < 6)
        throw StreamParseError(krx::streams::kTruncatedBox);
    parseVersion(box);
    TagEntry tag;
    tag.itemType = box.type;
    tag.dataType = kText;
    tag.language = readU16();
    tag.textLength = static_cast<unsigned>(std::min<unsigned long long>(bytesLeft(box.end), kMaxTextLength));
    tag.text = readText(tag.textLength);
    m_tags.push_back(std::move(tag));
}

void MP4File::parseChapterList(const BoxHeader& box)
{
    constexpr unsigned kSmallestEntry = 9;
    verifyUniqueBox(!m_chapters.empty());
    // The count is not trusted: the entries fill the box.
    skip(parseVersion(box) == 0 ? 1 : 5);
    while (bytesLeft(box.end) >= kSmallestEntry) {
        ChapterEntry chapter;
        chapter.time = readU64();
        chapter.title.resize(readU8());
        if (chapter.title.size() > bytesLeft(box.end))
            break;
        read(chapter.title.data(), chapter.title.size());
        m_chapters.push_back(std::move(chapter));
    }
}

void MP4File::parseProgressiveDownload(const BoxHeader& box)
{
    constexpr unsigned kEntrySize = 8;
    verifyUniqueBox(!m_progressive.empty());
    parseVersion(box);
    const unsigned long long length = bytesLeft(box.end);
    if (length % kEntrySize != 0)
        return;
    if (length == 0)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    for (unsigned long long i = 0; i < length / kEntrySize; ++i) {
        ProgressiveEntry entry;
        entry.rate = readU32();
        entry.initialDelay = readU32();
        m_progressive.push_back(entry);
    }
}

void MP4File::parseUniversalUniqueIDBox(const BoxHeader& box)
{
    const unsigned long long high = readU64();
    const unsigned long long low = readU64();
    constexpr krx::util::FilePos kPrefixSize = 24;
    // A packet behind a large header would not start where it is looked for.
    const bool hasPacket = box.size > kPrefixSize && curPos() == box.start + kPrefixSize;
    const krx::util::FilePos length = box.size - kPrefixSize;
    if (high != kXmpIdHigh || low != kXmpIdLow || !hasPacket ||
        length >= std::numeric_limits<unsigned>::max())
        return;
    const auto used = static_cast<unsigned>(length);
    if (!m_xmp)
        m_xmp = std::make_unique<SRMemory>(0);
    if (m_xmp->capacity() <= used && !m_xmp->resize(used + 1))
        return;
    read(m_xmp->data(), used);
    m_xmp->data()[used] = 0;
    m_xmp->setUsed(used);
}

bool MP4File::hasXMPData() const
{
    return m_xmp && m_xmp->capacity() != 0;
}

/// The next bytes of the file as a zero-terminated text.
std::shared_ptr<char[]> MP4File::readText(unsigned length)
{
    std::shared_ptr<char[]> text(new char[length + std::size_t{1}]);
    read(text.get(), length);
    text[length] = '\0';
    return text;
}

/// A text that ends with a zero, which is consumed, or after limit bytes.
SRMBString MP4File::readString(unsigned limit)
{
    // What a string of the library can hold.
    constexpr std::size_t kMaxLength = SRStringPool::kMaxLength;
    std::array<char, 256> chunk;
    std::string text;
    while (limit != 0) {
        const krx::util::FilePos start = curPos();
        const auto there = std::max(bytesLeft(m_io->Size()), 1ULL);
        const auto n = static_cast<unsigned>(std::min<unsigned long long>({there, limit, chunk.size()}));
        read(chunk.data(), n);
        const auto length =
            static_cast<unsigned>(std::find(chunk.data(), chunk.data() + n, '\0') - chunk.data());
        text.append(chunk.data(), length);
        if (text.size() > kMaxLength)
            throw StreamParseError(krx::streams::kBoxTooLarge);
        if (length != n) {
            skipTo(start + length + 1);
            break;
        }
        limit -= n;
    }
    return SRMBString(std::string_view(text));
}

}  // namespace krx::mp4
