// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/knownformats.h"

#include "tools/zmvutil/vidlint/src/zmvformat.h"
#include "util/bigendian.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace vidlint {
namespace {

using namespace std::string_view_literals;
using krx::util::loadBig32;

using Bytes = std::span<const unsigned char>;

constexpr std::size_t kMostBytes = 4096;

std::string_view textOf(Bytes bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool holds(Bytes bytes, std::size_t offset, std::string_view wanted)
{
    return bytes.size() >= offset && textOf(bytes.subspan(offset)).starts_with(wanted);
}

// Formats that begin with the same bytes in every file.

struct Signature
{
    std::string_view bytes;
    std::string_view name;
};

constexpr Signature kSignatures[] = {
    {"%PDF-"sv, "PDF"sv},
    {"PK\3\4"sv, "ZIP"sv},
    {"PK\5\6"sv, "ZIP"sv},
    {"PK\7\10"sv, "ZIP"sv},
    {"\x1F\x8B\x08"sv, "gzip"sv},
    {"7z\xBC\xAF\x27\x1C"sv, "7z"sv},
    {"Rar!\x1A\7"sv, "RAR"sv},
    {"OggS"sv, "Ogg"sv},
    {"fLaC"sv, "FLAC"sv},
    {"ID3\2"sv, "MP3"sv},
    {"ID3\3"sv, "MP3"sv},
    {"ID3\4"sv, "MP3"sv},
    {"\0\0\1\xBA"sv, "MPEG program stream"sv},
    {"\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\0\xAA\0\x62\xCE\x6C"sv, "ASF"sv},
    {"\xFF\xD8\xFF"sv, "JPEG"sv},
    {"\x89PNG\r\n\x1A\n"sv, "PNG"sv},
    {"GIF87a"sv, "GIF"sv},
    {"GIF89a"sv, "GIF"sv},
    {"\0\5\x16\7"sv, "AppleDouble"sv},
    {"\x7F"
     "ELF"sv,
     "ELF"sv},
    {"d8:announce"sv, "BitTorrent"sv},
    {"d13:announce-list"sv, "BitTorrent"sv},
    {"d7:comment"sv, "BitTorrent"sv},
    {"d10:created by"sv, "BitTorrent"sv},
    {"d13:creation date"sv, "BitTorrent"sv},
    {"d4:infod"sv, "BitTorrent"sv},
};

std::string_view bySignature(Bytes bytes)
{
    const auto* const found = std::find_if(std::begin(kSignatures), std::end(kSignatures),
                                           [&](const Signature& row) { return holds(bytes, 0, row.bytes); });
    return found != std::end(kSignatures) ? found->name : std::string_view();
}

// Containers that say what they hold.

std::string_view zmv(Bytes bytes)
{
    const bool isZmv = bytes.size() >= kZmvSignature.size() &&
                       std::equal(kZmvSignature.begin(), kZmvSignature.end(), bytes.begin());
    return isZmv ? "ZMV"sv : ""sv;
}

/// The types with which an MP4 file or a part of one begins.
constexpr std::string_view kFirstBoxes[] = {"ftyp", "moov", "moof", "mdat", "styp",
                                            "sidx", "pdin", "free", "skip", "wide"};

std::string_view mp4(Bytes bytes)
{
    constexpr unsigned kBoxHeader = 8;
    constexpr unsigned kMostBesidesMedia = 0x20000000;
    if (bytes.size() < kBoxHeader)
        return {};
    // 0 is a box up to the end of the file, and 1 one with a long size. Only media takes half a GiB; other
    // large numbers are text.
    const unsigned size = loadBig32(bytes.data());
    const std::string_view type = textOf(bytes.subspan(4, 4));
    if ((size > 1 && size < kBoxHeader) || (size >= kMostBesidesMedia && type != "mdat"))
        return {};
    return std::find(std::begin(kFirstBoxes), std::end(kFirstBoxes), type) != std::end(kFirstBoxes) ? "MP4"sv
                                                                                                    : ""sv;
}

std::string_view ebml(Bytes bytes)
{
    if (!holds(bytes, 0, "\x1A\x45\xDF\xA3"))
        return {};
    // The type of the document: an element of this ID, its size in 1 to 8 bytes, and the text.
    constexpr std::size_t kMostDocType = 8 + "matroska"sv.size();
    const std::string_view text = textOf(bytes);
    const std::size_t id = text.find("\x42\x82");
    const std::string_view docType = id == text.npos ? ""sv : text.substr(id + 2, kMostDocType);
    if (docType.find("webm") != docType.npos)
        return "WebM";
    return docType.find("matroska") != docType.npos ? "Matroska"sv : "EBML"sv;
}

std::string_view riff(Bytes bytes)
{
    constexpr std::size_t kForm = 8;
    if (!holds(bytes, 0, "RIFF") && !holds(bytes, 0, "RF64"))
        return {};
    if (holds(bytes, kForm, "AVI "))
        return "AVI";
    return holds(bytes, kForm, "WAVE") ? "WAV"sv : "RIFF"sv;
}

// Streams of packets or frames, each of which begins with a mark.

std::string_view transportStream(Bytes bytes)
{
    constexpr std::size_t kPacket = 188;
    constexpr unsigned char kSync = 0x47;
    if (bytes.size() <= 2 * kPacket)
        return {};
    for (std::size_t at = 0; at < bytes.size(); at += kPacket)
        if (bytes[at] != kSync)
            return {};
    return "MPEG transport stream";
}

/// Bytes of a frame of MPEG audio, layer III, from its header; 0 for another header.
std::size_t mp3FrameSize(unsigned header)
{
    constexpr std::array<unsigned, 16> kRates1{0,   32,  40,  48,  56,  64,  80,  96,
                                               112, 128, 160, 192, 224, 256, 320, 0};  // kbit/s
    constexpr std::array<unsigned, 16> kRates2{0,  8,  16, 24,  32,  40,  48,  56,
                                               64, 80, 96, 112, 128, 144, 160, 0};
    constexpr std::array<unsigned, 4> kFrequencies{44100, 48000, 32000, 0};  // Hz; half and a quarter below
    const unsigned version = header >> 19 & 3;                               // 3: 1, 2: 2, 0: 2.5
    const unsigned layer = header >> 17 & 3;
    const unsigned rate = (version == 3 ? kRates1 : kRates2)[header >> 12 & 15];
    const unsigned frequency = kFrequencies[header >> 10 & 3] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    if (header >> 21 != 0x7FF || version == 1 || layer != 1 || rate == 0 || frequency == 0)
        return 0;
    return std::size_t{version == 3 ? 144U : 72U} * rate * 1000 / frequency + (header >> 9 & 1);
}

/// Bytes of an ADTS frame from the first 7 of them; 0 for other bytes.
std::size_t adtsFrameSize(Bytes frame)
{
    constexpr std::size_t kHeader = 7;
    constexpr unsigned kFrequencies = 13;
    if (frame.size() < kHeader || frame[0] != 0xFF || (frame[1] & 0xF6U) != 0xF0 ||
        (frame[2] >> 2 & 15U) >= kFrequencies)
        return 0;
    const std::size_t size = (frame[3] & 3U) << 11 | unsigned{frame[4]} << 3 | unsigned{frame[5]} >> 5;
    return size > kHeader ? size : 0;
}

/// Whether two frames follow each other; sizeOf returns 0 where none begins.
template <typename SizeOf>
bool areFrames(Bytes bytes, SizeOf sizeOf)
{
    const std::size_t size = sizeOf(bytes);
    return size != 0 && size < bytes.size() && sizeOf(bytes.subspan(size)) != 0;
}

std::string_view audioFrames(Bytes bytes)
{
    const auto mp3 = [](Bytes at) { return at.size() < 4 ? 0 : mp3FrameSize(loadBig32(at.data())); };
    if (areFrames(bytes, mp3))
        return "MP3";
    return areFrames(bytes, adtsFrameSize) ? "AAC ADTS"sv : ""sv;
}

// Texts.

constexpr std::string_view kBlanks = " \t\r\n";

/// Bytes of the UTF-8 character at the front, where the text may end inside it; 0 for bytes that are none.
std::size_t characterSize(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return (lead >= ' ' && lead != 0x7F) || kBlanks.find(text[0]) != kBlanks.npos || lead == '\f' ? 1 : 0;
    const std::size_t size = lead >= 0xC2 && lead <= 0xDF   ? 2
                             : lead >= 0xE0 && lead <= 0xEF ? 3
                             : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                            : 0;
    for (std::size_t i = 1; i < std::min(size, text.size()); ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    return size;
}

bool isText(std::string_view text)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = characterSize(text.substr(at));
        if (size == 0)
            return false;
        at += size;
    }
    return !text.empty();
}

std::string_view withoutBlanks(std::string_view text)
{
    return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

/// small is in lower case.
bool startsWithNoCase(std::string_view text, std::string_view small)
{
    const auto isSame = [](char a, char b) { return a == b || (a >= 'A' && a <= 'Z' && a - 'A' + 'a' == b); };
    return text.size() >= small.size() &&
           std::equal(small.begin(), small.end(), text.begin(), [&](char b, char a) { return isSame(a, b); });
}

bool isJson(std::string_view text)
{
    if (text.empty() || (text[0] != '{' && text[0] != '['))
        return false;
    const std::string_view inside = withoutBlanks(text.substr(1));
    return !inside.empty() && (text[0] == '{' ? "\"}"sv : "{[\"]"sv).find(inside[0]) != text.npos;
}

std::string_view textFormat(Bytes bytes)
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::string_view text = textOf(bytes);
    if (text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    const std::string_view start = withoutBlanks(text);
    // Pages may be in another encoding than UTF-8.
    for (const std::string_view tag : {"<!doctype html"sv, "<html"sv, "<head"sv, "<body"sv})
        if (startsWithNoCase(start, tag))
            return "HTML";
    if (start.starts_with("<?xml"))
        return "XML";
    if (!isText(text))
        return {};
    return isJson(start) ? "JSON"sv : "plain text"sv;
}

/// The checks, the surest ones first.
constexpr std::string_view (*kChecks[])(Bytes) = {
    zmv, bySignature, ebml, riff, mp4, transportStream, audioFrames, textFormat,
};

}  // namespace

std::string_view formatOf(std::span<const unsigned char> firstBytes)
{
    const Bytes bytes = firstBytes.first(std::min(firstBytes.size(), kMostBytes));
    for (const auto check : kChecks)
        if (const std::string_view name = check(bytes); !name.empty())
            return name;
    return {};
}

}  // namespace vidlint
