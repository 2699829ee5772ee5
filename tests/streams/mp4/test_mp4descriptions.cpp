// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/codecname.h"
#include "tests/streams/mp4/parserfixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>

namespace krx::test {
namespace {

std::string withDescription(const std::string& description, const std::string& more = {})
{
    TrackBoxes track;
    track.description = description;
    track.more = tableBox("stss", 1, {1}) + more;
    return trackFile(track);
}

std::string withEntry(const std::string& entry)
{
    return withDescription(stsd({entry}));
}

/// A video entry with the given fields after the resolutions.
std::string oddVideoEntry(std::uint32_t reserved, unsigned frameCount, unsigned predefined)
{
    std::string entry = videoEntry("VP62");
    const std::string tail = Fields().u32(reserved).u16(frameCount).zeros(34).u16(predefined).bytes();
    return entry.replace(entry.size() - tail.size(), tail.size(), tail);
}

std::string avcWith(const std::string& configuration)
{
    return withEntry(videoEntry("avc1", box("pasp") + box("avcC", configuration)));
}

/// An audio entry with that content of its 'esds' box.
std::string aacWith(const Fields& descriptors)
{
    return withEntry(audioEntry("mp4a", fullBox("esds", descriptors)));
}

std::string aacConfigured(std::string_view configuration)
{
    return withEntry(aacEntry(configuration));
}

std::string protectedEntry(bool video, const std::string& boxes)
{
    const std::string sinf = box("sinf", boxes);
    return video ? videoEntry("encv", box("avcC", avcConfiguration()) + sinf)
                 : audioEntry("enca", esds("\x12\x10") + sinf);
}

Fields decoderConfig(unsigned size)
{
    return Fields().u8(3).u8(25).u24(0).u8(4).u8(17).zeros(13).u8(5).u8(size);
}

TEST(Mp4Descriptions, Faults)
{
    mp4::Mp4Config anyProfile;
    anyProfile.AllowAnyAVCProfile = true;
    anyProfile.AllowAnyAACProfile = true;
    mp4::Mp4Config small;
    small.MaxSampleSize = 20;
    const std::string mp3 = audioEntry(".mp3");
    const std::string hugeAvc = videoEntry("avc1", box("avcC", avcConfiguration() + std::string(13, 0)));
    expectFaults({
        {"outside a track", movieFile(stsd({mp3})), 31},
        {"second", withDescription(stsd({mp3}) + stsd({mp3})), 19},
        {"version 1", withDescription(fullBox("stsd", {}, 1)), 0, {123, 103}},
        {"no entries", withDescription(stsd({})), 22},
        {"more entries than there are", withDescription(fullBox("stsd", Fields().u32(0xFFFFFFFFU).raw(mp3))),
         18},
        {"entry beyond the box", withDescription(stsd({sizedBox(1000, ".mp3")})), 18},
        {"unknown entry", withEntry(box("mp4v", std::string(70, 0))), 0, {107}},
        {"reserved word", withEntry(oddVideoEntry(1, 1, 0xFFFF)), 0, {108}},
        {"frame count", withEntry(oddVideoEntry(0, 2, 0xFFFF)), 0, {108}},
        {"predefined word", withEntry(oddVideoEntry(0, 1, 0)), 0, {108}},
        {"AVC without configuration", withEntry(videoEntry("avc1")), 0, {108}},
        {"AVC configuration beyond the entry", withEntry(videoEntry("avc1", sizedBox(99, "avcC"))), 18},
        {"AVC configuration version", avcWith(std::string("\2\x4D\0\x1E", 4)), 0, {108}},
        {"AVC extended profile", avcWith(avcConfiguration(88)), 0, {108}},
        {"AVC extended profile allowed", avcWith(avcConfiguration(88)), 0, {}, anyProfile},
        {"AVC configuration, the limit", withEntry(hugeAvc), 0, {108}, small},
        {"AAC without descriptor", withEntry(audioEntry("mp4a")), 0, {109}},
        {"descriptor version", withEntry(audioEntry("mp4a", fullBox("esds", {}, 1))), 0, {123, 103}},
        {"first tag leads nowhere", aacWith(Fields().u8(9).u16(0).u8(6).zeros(20)), 0, {109}},
        {"second tag", aacWith(Fields().u8(3).u8(25).u24(0).u8(5).zeros(20)), 0, {109}},
        {"third tag", aacWith(Fields().u8(3).u8(25).u24(0).u8(4).u8(17).zeros(13).u8(6)), 0, {109}},
        {"configuration beyond the entry", aacWith(decoderConfig(3).u16(0x1210)), 0, {109}},
        {"size without end", aacWith(Fields().u8(3).raw(std::string(40, '\xFF'))), 0, {109}},
        {"AAC configuration, the limit", aacWith(decoderConfig(20).u16(0x1210).zeros(18)), 0, {109}, small},
        {"AAC object type 29", aacConfigured("\xEA\x10"), 0, {109}},
        {"AAC object type 29 allowed", aacConfigured("\xEA\x10"), 0, {}, anyProfile},
        {"AAC configuration of one byte", aacConfigured("\x12"), 0, {109}},
        {"AAC configuration without bytes", aacConfigured(""), 0, {109}, anyProfile},
        {"AAC frequency cut off", aacConfigured(std::string_view("\x17\x80\x56", 3)), 0, {109}},
    });
}

TEST(Mp4Descriptions, ScanBeyondTheFile)
{
    // The entry ends the file: a type could start in its last bytes, but not end.
    const std::string track = box("trak", tkhd(1) + stsd({videoEntry("avc1", box("pasp"))}));
    expectFaults({
        {"at the end", ftyp() + box("moov", track), 5},
        {"two bytes before", ftyp() + box("moov", track + "ab"), 5},
        {"three bytes before", ftyp() + box("moov", track + "abc"), 0, {108, 112}},
    });
}

TEST(Mp4Descriptions, Aac)
{
    struct
    {
        std::string_view configuration;
        unsigned objectType;
        double rate;
        unsigned channels;
    } const cases[] = {
        {"\x12\x10", 2, 44100, 2},
        {{"\x17\x80\x56\x22\x10", 5}, 2, 44100, 2},
        {{"\x2B\x88", 2}, 5, 22050, 1},
        {{"\x0E\x30", 2}, 1, 0, 6},
    };
    for (const auto& c : cases) {
        const auto parsed = parseFile(aacConfigured(c.configuration));
        const mp4::SampleEntry& entry = parsed->track()->sampleDescriptions[0];
        EXPECT_TRUE(parsed->mp4.hasAACAudio());
        EXPECT_EQ(parsed->mp4.getAACObjectType(), c.objectType);
        EXPECT_EQ(entry.sampleRate, c.rate);
        EXPECT_EQ(entry.channelCount, c.channels);
        EXPECT_EQ(entry.configLength, c.configuration.size());
    }
    // Version 1 has 16 bytes more in front of the boxes; another first tag has no size.
    const std::string versionOne = box(
        "mp4a", Fields().zeros(8).u16(1).zeros(22).raw("junk").zeros(8).raw(fullBox(
                    "esds", Fields().u8(9).u16(0).u8(4).u8(17).zeros(13).u8(5).u24(0x808002).u16(0x1210))));
    EXPECT_EQ(parseFile(withEntry(versionOne))->warnings, std::vector<int>{});
}

TEST(Mp4Descriptions, TimedText)
{
    Fields style;
    style.zeros(8).u32(0x01020304).u8(5).u8(6).u32(0x0708090A).u16(11).u16(12).u16(13).u16(14);
    style.u16(15).u16(16).u16(17).u8(18).u8(19).u32(0x14151617);
    const auto entryWith = [&](std::string_view fonts) { return box("tx3g", Fields(style).raw(fonts)); };
    const std::string serif = Fields().u16(1).u8(5).raw("Serif").bytes();
    const std::string sans = Fields().u16(2).u8(4).raw("Sans").bytes();
    struct
    {
        std::string fonts;
        unsigned count;
    } const cases[] = {
        {{}, 0},
        {box("ftab", Fields().u16(2).raw(serif + sans)), 2},
        {box("ftab", Fields().u16(1).raw(serif + sans)), 1},
        {box("ftab", Fields().u16(0xFFFF).raw(serif + sans)), 2},
        {box("ftab", Fields().u16(2).raw(serif + sans.substr(0, 5))), 1},
        {box("ftab", "x"), 0},
        {box("btrt", Fields().u16(1).raw(serif)), 0},
    };
    for (const auto& c : cases) {
        const auto parsed = parseFile(withEntry(entryWith(c.fonts)));
        EXPECT_EQ(parsed->error, 0);
        const mp4::TextStyle& read = *parsed->track()->sampleDescriptions[0].style;
        EXPECT_EQ(read.displayFlags, 0x01020304U);
        EXPECT_EQ(read.verticalJustification, 6U);
        EXPECT_EQ(read.boxRight, 14U);
        EXPECT_EQ(read.fontSize, 19U);
        EXPECT_EQ(read.textColor, 0x14151617U);
        EXPECT_EQ(read.fonts.size(), c.count);
        std::string fonts;
        read.fonts.forEach(
            [&](unsigned id, std::string_view name) { fonts.append(std::to_string(id)).append(name); });
        const char* const expected[] = {"", "1Serif", "1Serif2Sans"};
        EXPECT_EQ(fonts, expected[c.count]);
    }
}

TEST(Mp4Descriptions, Protection)
{
    const auto text = [](std::string_view s) { return std::string(s) + '\0'; };
    const std::string scheme = fullBox("schm", Fields().raw("qdkm").u32(1));
    const std::string key =
        fullBox("qkey", box("zol ", text("lic") + text("pol") + text("edc") + text("dom")));
    const std::string params = fullBox("qprm", fullBox("qeib", text("AES-CBC") + '\x10') + key, 1);
    const std::string header =
        fullBox("qhdr", fullBox("qdkm", params) + box("qsig", text("fmt") + text("sig")), 2, 5);
    const std::string access = fullBox("qdaf", std::string("\1\0\x10", 3));
    const std::string all = box("frma", "avc1") + scheme + box("schi", header + access);
    const auto parsed = parseFile(withEntry(protectedEntry(false, all)));
    EXPECT_EQ(parsed->error, 0);
    EXPECT_EQ(parsed->warnings, std::vector<int>{});
    const mp4::DRMTrackInfo& drm = parsed->track()->drm;
    EXPECT_EQ(drm.originalFormat, mp4::fourCC("avc1"));
    EXPECT_TRUE(drm.selectiveEncryption);
    EXPECT_EQ(drm.ivLength, 16U);

    const std::string wdxs = box("wdxs", text("meta") + text("lic"));
    std::vector<FaultCase> cases = {
        {"video", withEntry(protectedEntry(true, all))},
        {"without 'sinf'", withEntry(videoEntry("encv", box("avcC", avcConfiguration())))},
        {"other scheme", withEntry(protectedEntry(true, fullBox("schm", Fields().raw("cenc")))), 27},
        {"scheme outside a track", movieFile(scheme)},
        {"both kinds", withEntry(protectedEntry(true, key + wdxs)), 19},
    };
    for (const std::string& twice : {box("frma", "avc1"), header, params, fullBox("qeib", text("A") + '\1'),
                                     access, box("qsig", text("a") + text("b")), key, wdxs})
    {
        cases.push_back({"twice", withEntry(protectedEntry(true, twice + twice)), 19});
        cases.push_back({"outside a track", movieFile(box("sinf", twice)), 31});
    }
    expectFaults(cases);
}

TEST(Mp4Descriptions, ProtectionTexts)
{
    // A text without a zero goes on after its box, up to the size of the box or the end of the file.
    const std::string endless = box("qsig", std::string(300, 'a'));
    const auto parsed = parseFile(withDescription(stsd({protectedEntry(true, endless)})));
    EXPECT_EQ(parsed->track()->drm.signatureFormat.size(), 300U);
    const auto limited =
        parseFile(movieFile(box("trak", tkhd(1) + sizedLargeBox(16, "qsig", "abcdefghijklmnopqrstuvwxyz"))));
    EXPECT_EQ(limited->track()->drm.signatureFormat, "abcdefghijklmnop");
    EXPECT_EQ(limited->track()->drm.signature, "qrstuvwxyz");
    // Longer than a string of the library.
    const std::string track = box("trak", tkhd(1) + box("wdxs", std::string(0x1000000, 'a') + '\0'));
    EXPECT_EQ(parseFile(movieFile(track))->error, 17);
    const auto ended = parseFile(ftyp() + box("moov", box("trak", tkhd(1) + box("zol ", "abcd"))));
    EXPECT_EQ(ended->error, 117);
}

TEST(Mp4Descriptions, CodecNames)
{
    using mp4::fourCC;
    const struct
    {
        unsigned type;
        std::string configuration;
        const char* name;
    } cases[] = {
        {fourCC("avc1"), std::string("\x01\x64\x00\x1F", 4), "avc1.64001F"},
        {fourCC("avc1"), "\x01\x42\xC0\xAF\xFF", "avc1.42C0AF"},
        {fourCC("avc1"), "\x01\x42\xC0", ""},
        {fourCC("mp4a"), "\x12\x10", "mp4a.40.2"},
        {fourCC("mp4a"), "\x2B\x92", "mp4a.40.5"},
        {fourCC("mp4a"), "\xF8\x40", "mp4a.40.34"},
        {fourCC("mp4a"), "\xFF\xFF", "mp4a.40.95"},
        {fourCC("mp4a"), "\xF8", ""},
        {fourCC("mp4a"), "", ""},
        {fourCC(".mp3"), "", "mp4a.40.34"},
        {fourCC("encv"), "\x01\x42\xC0\xAF", ""},
        {fourCC("VP62"), "", ""},
    };
    for (const auto& c : cases) {
        mp4::SampleEntry entry;
        entry.type = c.type;
        entry.configLength = static_cast<unsigned>(c.configuration.size());
        entry.config = std::make_shared<unsigned char[]>(entry.configLength);
        std::copy(c.configuration.begin(), c.configuration.end(), entry.config.get());
        EXPECT_EQ(mp4::rfc6381Of(entry), c.name);
    }
}

TEST(Mp4Descriptions, Languages)
{
    EXPECT_EQ(mp4::languageOf(0x15C7), "eng");
    EXPECT_EQ(mp4::languageOf(0x55C4), "und");
    EXPECT_EQ(mp4::languageOf(0x0421), "aaa");
    // A number of another kind of code, a letter after the last one, a set top bit.
    for (const unsigned short packed : std::initializer_list<unsigned short>{0, 11, 0x7FFF, 0x15DB, 0x95C7})
        EXPECT_EQ(mp4::languageOf(packed), "") << packed;
}

}  // namespace
}  // namespace krx::test
