// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxes/handlers.h"
#include "modules/streams/mp4/boxwalk.h"
#include "util/SRBuffer.h"
#include "util/SRException.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string_view>

namespace krx::mp4 {
namespace {

using krx::streams::StreamParseError;

constexpr unsigned kMaxTextLength = 65535;
constexpr unsigned kMaxImageLength = 4194304;
constexpr unsigned kMaxIntegers = 1024;

/// BE7ACFCB-97A9-42E8-9C71-999491E3AFAC
constexpr unsigned long long kXmpIdHigh = 0xBE7ACFCB97A942E8ULL;
constexpr unsigned long long kXmpIdLow = 0x9C71999491E3AFACULL;

/// The next n bytes of the file, at most limit; they stay as long as the movie.
std::string_view keepBytes(BoxReader& in, Movie& movie, unsigned long long n, unsigned long long limit)
{
    n = std::min(n, limit);
    if (n == 0)
        return {};
    char* bytes = movie.texts.add(n, in.memory());
    in.read(bytes, n);
    return {bytes, n};
}

void addTag(BoxReader& in, Movie& movie, const TagEntry& tag)
{
    in.memory().charge(kDequeElement<TagEntry>);
    movie.tags.push_back(tag);
}

/// Reads one box of an item and moves after it.
void readItemData(BoxReader& in, const BoxHeader& item, Movie& movie)
{
    const BoxHeader data = in.readHeader(item);
    if (data.type != fourCC("data") || in.bytesLeft(data.end) < 8) {
        in.skipTo(data.end);
        return;
    }
    TagEntry tag;
    tag.itemType = item.type;
    tag.dataType = in.readU32();
    if (item.type == fourCC("purl") || item.type == fourCC("egid"))
        tag.dataType = TagEntry::kText;
    in.skip(4);  // locale
    const unsigned long long length = in.bytesLeft(data.end);
    switch (tag.dataType) {
        case TagEntry::kText:
            tag.content = keepBytes(in, movie, length, kMaxTextLength);
            break;
        case TagEntry::kJPEG:
        case TagEntry::kPNG:
            tag.content = keepBytes(in, movie, length, kMaxImageLength);
            break;
        case TagEntry::kImplicit:
        case TagEntry::kInteger:
            tag.integerSize = item.type == fourCC("trkn") || item.type == fourCC("disk") ? 2 : 4;
            tag.content = keepBytes(in, movie, length, 1ULL * kMaxIntegers * tag.integerSize);
            break;
        default:
            break;
    }
    addTag(in, movie, tag);
    in.skipTo(data.end);
}

/// Returns room for n bytes and a zero after them; it replaces an earlier text.
void* provideXmp(BoxReader& in, Movie& movie, unsigned n)
{
    if (!movie.xmp)
        movie.xmp = std::make_unique<SRMemory>(0);
    if (movie.xmp->capacity() <= n) {
        in.memory().charge(n + 1 - movie.xmp->capacity());
        if (!movie.xmp->resize(n + 1))
            throw SROutOfMemory();
    }
    return movie.xmp->data();
}

}  // namespace

/// Other formats have a box of this type that does not hold boxes after version and flags.
void readMetadata(BoxWalk& walk, const BoxHeader& box)
{
    BoxReader& in = walk.reader();
    in.skip(4);  // version, flags
    const krx::util::FilePos children = in.position();
    bool supported = true;
    try {
        in.readHeader(box);
    } catch (const StreamParseError&) {
        supported = false;
    }
    if (!supported) {
        in.warn(krx::streams::kUnsupportedMetadata);
        return;
    }
    in.skipTo(children);
    walk.readChildren(box);
}

void readItemList(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    while (in.bytesLeft(box.end) >= kBoxHeaderSize) {
        const BoxHeader item = in.readHeader(box, krx::streams::kInvalidEntryCount);
        if (!item.isFreeBox())
            in.inside(item, 0, [&] {
                while (in.bytesLeft(item.end) >= kBoxHeaderSize)
                    readItemData(in, item, movie);
            });
        in.skipTo(item.end);
    }
}

void readStringTag(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    TagEntry tag;
    tag.itemType = box.type;
    tag.dataType = TagEntry::kText;
    tag.language = in.readU16();
    tag.content = keepBytes(in, movie, in.bytesLeft(box.end), kMaxTextLength);
    addTag(in, movie, tag);
}

void readChapterList(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    // The count is not trusted: the entries fill the box.
    in.skip(box.version == 0 ? 1 : 5);
    while (in.bytesLeft(box.end) >= ChapterEntry::kPrefix) {
        if (movie.chapters.empty())
            movie.firstChapterPlace = in.placeAt(in.position());
        ChapterEntry chapter;
        chapter.time = in.readU64();
        const unsigned length = in.readU8();
        if (length > in.bytesLeft(box.end))
            break;
        chapter.title = keepBytes(in, movie, length, length);
        in.memory().charge(kDequeElement<ChapterEntry>);
        movie.chapters.push_back(chapter);
    }
}

void readProgressiveDownload(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    constexpr unsigned kEntrySize = 8;
    const unsigned long long length = in.bytesLeft(box.end);
    if (length % kEntrySize != 0)
        return;
    if (length == 0)
        throw StreamParseError(krx::streams::kInvalidEntryCount);
    in.memory().charge(length / kEntrySize * sizeof(ProgressiveEntry));
    movie.progressive.reserve(length / kEntrySize);
    for (unsigned long long i = 0; i < length / kEntrySize; ++i) {
        ProgressiveEntry entry;
        entry.rate = in.readU32();
        entry.initialDelay = in.readU32();
        movie.progressive.push_back(entry);
    }
}

/// Other extensions are passed over.
void readXmp(BoxReader& in, const BoxHeader& box, Movie& movie)
{
    const unsigned long long high = in.readU64();
    const unsigned long long low = in.readU64();
    constexpr krx::util::FilePos kPrefixSize = 24;
    // A packet after a large header would not start where it is looked for.
    const bool hasPacket = box.size > kPrefixSize && in.position() == box.start + kPrefixSize;
    const krx::util::FilePos length = box.size - kPrefixSize;
    if (high != kXmpIdHigh || low != kXmpIdLow || !hasPacket ||
        length >= std::numeric_limits<unsigned>::max())
        return;
    const auto used = static_cast<unsigned>(length);
    in.read(provideXmp(in, movie, used), used);
    movie.xmp->data()[used] = 0;
    movie.xmp->setUsed(used);
}

}  // namespace krx::mp4
