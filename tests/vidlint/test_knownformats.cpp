// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/hextext.h"
#include "tools/zmvutil/vidlint/src/knownformats.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

namespace krx::test {
namespace {

/// In memory of exactly that size, so that a sanitizer sees reads beyond it.
std::string formatOf(const std::string& bytes)
{
    const auto copy = std::make_unique<unsigned char[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    return std::string(vidlint::formatOf({copy.get(), bytes.size()}));
}

std::string repeated(const std::string& part, int n)
{
    std::string all;
    for (int i = 0; i < n; ++i)
        all += part;
    return all;
}

/// A header and zeros up to size.
std::string frame(const std::string& header, std::size_t size)
{
    std::string bytes = hexText(header);
    bytes.resize(size);
    return bytes;
}

TEST(KnownFormats, ByTheFirstBytes)
{
    const std::string mp3 = frame("FF FB 90 00", 417);         // 128 kbit/s at 44.1 kHz
    const std::string lowMp3 = frame("FF F3 4A 00", 144 + 1);  // 32 kbit/s at 16 kHz, padded
    const std::string adts = frame("FF F1 50 80 0C 9F FC", 100);
    const std::string packet = frame("47 40 00 10", 188);
    const std::string ebml = hexText("1A 45 DF A3 A3 42 86 81 01 42 F7 81 01 42 82 ");
    const struct
    {
        std::string bytes;
        std::string name;
    } cases[] = {
        {"", ""},
        {std::string(512, '\0'), ""},
        {"\n<!DOCTYPE HTML><title>404</title>", "HTML"},
        {"\xEF\xBB\xBF<html lang=\"de\">\xE4", "HTML"},
        {"<?xml version=\"1.0\"?><r/>", "XML"},
        {"{ \"error\": 404 }", "JSON"},
        {"[{}]", "JSON"},
        {"[in brackets]", "plain text"},
        {"Gesch\xC3\xBCtzt\r\n\tnur \xE2\x82", "plain text"},  // ends inside a character
        {"G" + std::string(1000, 'x'), "plain text"},
        {"pay-free offers", "plain text"},
        {"text\x01", ""},
        {"text\xFFtext", ""},
        {"%PDF-1.7\n%\xE2\xE3", "PDF"},
        {hexText("'PK' 03 04 14 00"), "ZIP"},
        {hexText("1F 8B 08 00"), "gzip"},
        {hexText("'7z' BC AF 27 1C 00 04"), "7z"},
        {hexText("'Rar!' 1A 07 01 00"), "RAR"},
        {ebml + hexText("88 'matroska'"), "Matroska"},
        {ebml + hexText("01 00 00 00 00 00 00 04 'webm'"), "WebM"},
        {ebml, "EBML"},
        {hexText("'RIFF' 00 00 01 00 'AVI LIST'"), "AVI"},
        {hexText("'RIFF' 00 00 01 00 'WAVEfmt '"), "WAV"},
        {hexText("'OggS' 00 02"), "Ogg"},
        {repeated(packet, 3), "MPEG transport stream"},
        {repeated(packet, 2), ""},
        {repeated(packet, 3) + std::string(188, '\0'), ""},
        {hexText("00 00 01 BA 44"), "MPEG program stream"},
        {hexText("'ID3' 04 00 00 00 00 02 01"), "MP3"},
        {mp3 + mp3, "MP3"},
        {lowMp3 + lowMp3, "MP3"},
        {mp3, ""},
        {mp3 + '\0' + mp3, ""},
        {adts + adts, "AAC ADTS"},
        {adts + mp3, ""},
        {hexText("'fLaC' 00 00 00 22"), "FLAC"},
        {hexText("30 26 B2 75 8E 66 CF 11 A6 D9 00 AA 00 62 CE 6C"), "ASF"},
        {hexText("FF D8 FF E0 00 10 'JFIF'"), "JPEG"},
        {hexText("89 'PNG' 0D 0A 1A 0A"), "PNG"},
        {"GIF89a", "GIF"},
        {hexText("00 05 16 07 00 02 00 00"), "AppleDouble"},
        {"d8:announce35:udp://tracker.example", "BitTorrent"},
        {hexText("7F 'ELF' 02 01 01"), "ELF"},
        {hexText("00 00 00 18 'ftypmp42'"), "MP4"},
        {hexText("00 00 00 01 'mdat'"), "MP4"},
        {hexText("F0 00 00 00 'mdat'"), "MP4"},
        {hexText("00 00 00 07 'moov'"), ""},
        {hexText("00 00 00 18 'abcd'"), ""},
        {hexText("'ZMV' 01 05 00 00 00 09"), "ZMV"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(formatOf(c.bytes), c.name) << "case " << &c - cases;
}

/// A beginning of any length names its format or none, or is text so far; and damage is survived.
TEST(KnownFormats, OfCutAndDamagedBytes)
{
    const std::string webm = hexText("1A 45 DF A3 9F 42 82 84 'webm' 42 87 81 02") + std::string(50, '\0');
    const std::string inputs[] = {webm, repeated(frame("FF F1 50 80 0C 9F FC", 100), 3),
                                  hexText("'RIFF' 00 00 01 00 'WAVE'"), hexText("00 00 00 18 'ftypmp42'"),
                                  "<!DOCTYPE html><html>"};
    std::mt19937 random(1);
    for (const std::string& input : inputs) {
        const std::string whole = formatOf(input);
        EXPECT_NE(whole, "");
        for (std::size_t n = 0; n < input.size(); ++n) {
            const std::string name = formatOf(input.substr(0, n));
            EXPECT_TRUE(name == whole || name.empty() || name == "plain text" || name == "EBML" ||
                        name == "RIFF")
                << name << " for " << n << " bytes of " << whole;
        }
        for (int i = 0; i < 2000; ++i) {
            std::string damaged = input.substr(0, random() % (input.size() + 1));
            for (int changes = 3; changes > 0 && !damaged.empty(); --changes)
                damaged[random() % damaged.size()] = static_cast<char>(random());
            formatOf(damaged);
        }
    }
}

}  // namespace
}  // namespace krx::test
