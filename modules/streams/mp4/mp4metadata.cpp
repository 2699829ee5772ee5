// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/mp4boxrules.h"
#include "modules/streams/mp4/mp4fileio.h"
#include "util/SRBuffer.h"
#include "util/SRException.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

// Metadata boxes: item lists, string tags, chapters, progressive download, XMP.

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

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
    while (bytesLeft(box.end) >= kBoxHeaderSize) {
        const BoxHeader item = parseBoxHeader(box, krx::streams::kInvalidEntryCount);
        if (!item.isFreeBox()) {
            const OpenBox open(m_openBoxes, item.type);
            while (bytesLeft(item.end) >= kBoxHeaderSize)
                parseItunesDataTag(item);
        }
        skipTo(item.end);
    }
}

/// Reads one box of an item and stands after it then.
void MP4File::parseItunesDataTag(const BoxHeader& item)
{
    const BoxHeader data = parseBoxHeader(item);
    if (data.type != fourCC("data") || bytesLeft(data.end) < kBoxHeaderSize) {
        skipTo(data.end);
        return;
    }
    TagEntry tag;
    tag.itemType = item.type;
    tag.dataType = readU32();
    if (item.type == fourCC("purl") || item.type == fourCC("egid"))
        tag.dataType = TagEntry::kText;
    skip(4);  // locale
    const unsigned long long length = bytesLeft(data.end);
    switch (tag.dataType) {
        case TagEntry::kText:
            tag.content = readBytes(std::min<unsigned long long>(length, kMaxTextLength));
            break;
        case TagEntry::kJPEG:
        case TagEntry::kPNG:
            tag.content = readBytes(std::min<unsigned long long>(length, kMaxImageLength));
            break;
        case TagEntry::kImplicit:
        case TagEntry::kInteger:
            tag.integerSize = item.type == fourCC("trkn") || item.type == fourCC("disk") ? 2 : 4;
            tag.content =
                readBytes(std::min<unsigned long long>(length, 1ULL * kMaxIntegers * tag.integerSize));
            break;
        default:
            break;
    }
    addTag(tag);
    skipTo(data.end);
}

void MP4File::addTag(const TagEntry& tag)
{
    m_memory.charge(kDequeElement<TagEntry>);
    m_tags.push_back(tag);
}

unsigned MP4File::TagEntry::integerCount() const
{
    return integerSize == 0 ? 0 : static_cast<unsigned>((content.size() + integerSize - 1) / integerSize);
}

unsigned MP4File::TagEntry::integer(unsigned i) const
{
    unsigned value = 0;
    for (const char byte : content.substr(std::size_t{i} * integerSize, integerSize))
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

void MP4File::parseStringTag(const BoxHeader& box)
{
    if (bytesLeft(box.end) < 6)
        throw StreamParseError(krx::streams::kTruncatedBox);
    parseVersion(box);
    TagEntry tag;
    tag.itemType = box.type;
    tag.dataType = TagEntry::kText;
    tag.language = readU16();
    tag.content = readBytes(std::min<unsigned long long>(bytesLeft(box.end), kMaxTextLength));
    addTag(tag);
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
        const unsigned length = readU8();
        if (length > bytesLeft(box.end))
            break;
        chapter.title = readBytes(length);
        m_memory.charge(kDequeElement<ChapterEntry>);
        m_chapters.push_back(chapter);
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
    m_memory.charge(length / kEntrySize * sizeof(ProgressiveEntry));
    m_progressive.reserve(length / kEntrySize);
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
    // A packet after a large header would not start where it is looked for.
    const bool hasPacket = box.size > kPrefixSize && curPos() == box.start + kPrefixSize;
    const krx::util::FilePos length = box.size - kPrefixSize;
    if (high != kXmpIdHigh || low != kXmpIdLow || !hasPacket ||
        length >= std::numeric_limits<unsigned>::max())
        return;
    const auto used = static_cast<unsigned>(length);
    if (!m_xmp)
        m_xmp = std::make_unique<SRMemory>(0);
    if (m_xmp->capacity() <= used) {
        m_memory.charge(used + 1 - m_xmp->capacity());
        if (!m_xmp->resize(used + 1))
            throw SROutOfMemory();
    }
    read(m_xmp->data(), used);
    m_xmp->data()[used] = 0;
    m_xmp->setUsed(used);
}

bool MP4File::hasXMPData() const
{
    return m_xmp && m_xmp->capacity() != 0;
}

/// The next n bytes of the file, which stay as long as the object.
std::string_view MP4File::readBytes(unsigned long long n)
{
    if (n == 0)
        return {};
    char* bytes = m_texts.add(n);
    read(bytes, n);
    return {bytes, n};
}

/// A text that ends with a zero, which is consumed, or after limit bytes.
SRMBString MP4File::readString(unsigned limit)
{
    // What a string of the library can hold.
    constexpr std::size_t kMaxLength = SRStringPool::kMaxLength;
    const krx::util::FilePos start = curPos();
    std::array<char, 256> chunk;
    std::size_t length = 0;
    bool ended = false;
    while (limit != 0 && !ended) {
        const auto there = std::max(bytesLeft(m_io->Size()), 1ULL);
        const auto n = static_cast<unsigned>(std::min<unsigned long long>({there, limit, chunk.size()}));
        read(chunk.data(), n);
        const char* zero = std::find(chunk.data(), chunk.data() + n, '\0');
        length += static_cast<std::size_t>(zero - chunk.data());
        if (length > kMaxLength)
            throw StreamParseError(krx::streams::kBoxTooLarge);
        ended = zero != chunk.data() + n;
        limit -= n;
    }
    // Read again once the length is known, so that it is held no more than twice.
    m_memory.charge(length + kBlockOverhead);
    skipTo(start);
    std::string text(length, '\0');
    read(text.data(), length);
    skip(ended ? 1 : 0);
    return SRMBString(std::string_view(text));
}

}  // namespace krx::mp4
