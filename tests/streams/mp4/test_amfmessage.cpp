// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/amfmessage.h"
#include "server/SRCSerializer.h"
#include "tests/streams/mp4/parserfixture.h"
#include "tests/streams/mp4/playfixture.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

#include <functional>

namespace krx::test {
namespace {

using mp4::AMFMessage;

std::string bytesOf(const AMFMessage& message)
{
    EXPECT_FALSE(message.hasFailed());
    return {reinterpret_cast<const char*>(message.data()), message.length()};
}

std::string written(const std::function<void(AMFMessage&)>& write)
{
    AMFMessage message;
    write(message);
    return toHex(bytesOf(message));
}

/// The values of an AMF0 body as text; the body must hold nothing else.
std::string readable(std::string_view body)
{
    SRCSerializer reader(reinterpret_cast<const unsigned char*>(body.data()), static_cast<int>(body.size()),
                         true);
    std::string text;
    while (!reader.atEnd()) {
        SRData value;
        reader.GetVar(&value, false);
        text += (text.empty() ? "" : " ") + std::string(value.toText().view());
    }
    return text;
}

const unsigned char* bytePtr(std::string_view bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

std::string textMessage(std::string_view sample, bool amf3 = false)
{
    mp4::TrackInfo track;
    track.trackId = 3;
    AMFMessage message;
    message.initFromText(track, amf3, bytePtr(sample), static_cast<unsigned>(sample.size()));
    return bytesOf(message);
}

std::string metadata(const std::string& file, bool amf3 = false)
{
    const auto parsed = parseFile(file);
    EXPECT_EQ(parsed->error, 0);
    AMFMessage message;
    message.initMetaData(parsed->mp4, 1500, amf3);
    return bytesOf(message);
}

std::string dataTag(const char* item, unsigned type, std::string_view value)
{
    return box(item, box("data", Fields().u32(type).u32(0).raw(value)));
}

std::string stringTag(const char* type, unsigned language, std::string_view text)
{
    return fullBox(type, Fields().u16(language).raw(text));
}

std::string itemList(const std::string& items)
{
    return box("udta", fullBox("meta", fullBox("hdlr", Fields().zeros(20)) + box("ilst", items)));
}

}  // namespace

TEST(AMFMessage, WritesLengthsAndStrings)
{
    const std::pair<unsigned, const char*> integers[] = {
        {0x7F, "7F"},           {0x80, "81 00"},           {0x3FFF, "FF 7F"},           {0x4000, "81 80 00"},
        {0x1FFFFF, "FF FF 7F"}, {0x200000, "80 C0 80 00"}, {0x3FFFFFFF, "FF FF FF FF"}, {0x40000000, "00"}};
    for (const auto& [value, bytes] : integers)
        EXPECT_EQ(written([v = value](AMFMessage& m) { m.WriteAMF3Uint29(v); }), bytes) << value;
    const std::pair<std::string, const char*> strings[] = {
        {"a", "02 00 01 61"},
        {std::string("a\0b", 3), "02 00 01 61"},
        {hexText("FEFF 0041 00E9 20AC 0000 0042"), "02 00 06 41 C3 A9 E2 82 AC"},
        {hexText("FEFF 0041 00"), "02 00 01 41"},
        {hexText("FFFF 'x'"), "02 00 00"},
        {hexText("FFFE 'x'"), "02 00 03 FF FE 78"},
        {"", "02 00 00"}};
    for (const auto& [text, bytes] : strings)
        EXPECT_EQ(written([&t = text](AMFMessage& m) { m.AddAMF0String(t, true); }), bytes);
    for (const std::size_t n : {65535U, 65536U}) {
        AMFMessage message;
        message.AddAMF0String(std::string(n, 'x'), true);
        EXPECT_EQ(toHex(bytesOf(message).substr(0, 5)), n == 65535 ? "02 FF FF 78 78" : "0C 00 01 00 00");
        EXPECT_EQ(message.length(), n + (n == 65535 ? 3 : 5));
    }
}

TEST(AMFMessage, TellsTheMovie)
{
    MovieTrack video = plainTrack(avcEntry(77, 30), 50, 10, 1000);
    video.timescale = 25000;
    video.language = 0;
    MovieTrack audio = plainTrack(aacEntry(), 86, 10, 1024);
    audio.timescale = 44100;
    audio.id = 2;
    Movie movie;
    movie.tracks = {video, audio};
    PlayedFile file(buildMovie(movie).bytes);
    ASSERT_EQ(file.status, mp4::kLoadOk);
    EXPECT_EQ(readable(file.metadata()),
              "onMetaData {duration: 2, moovPosition: 32, width: 640, height: 480, videocodecid: avc1, "
              "audiocodecid: mp4a, avcprofile: 77, avclevel: 30, aacaot: 2, videoframerate: 25, "
              "audiosamplerate: 44100, audiochannels: 2, "
              "trackinfo: {0: {length: 50000, timescale: 25000, "
              "sampledescription: {0: {sampletype: avc1}}}, "
              "1: {length: 88064, timescale: 44100, language: und, "
              "sampledescription: {0: {sampletype: mp4a}}}}}");

    // The first and the last bytes: a reader of values would not show their encoding.
    const std::string body = file.metadata();
    const std::string start = hexText("02 000A 'onMetaData' 08 00000000 0008 'duration' 00 4000000000000000");
    EXPECT_EQ(toHex(body.substr(0, start.size())), toHex(start));
    const std::string end = hexText("000A 'sampletype' 02 0004 'mp4a' 000009 000009 000009");
    EXPECT_EQ(toHex(body.substr(body.size() - end.size())), toHex(end));
}

TEST(AMFMessage, TellsTheFrameRateWithoutALength)
{
    const auto rateOf = [](std::uint32_t duration, std::uint32_t lastOffset) {
        TrackBoxes video;
        video.mediaHeader = mdhd(1000, 0);
        video.description = stsd({videoEntry("H263")});
        video.times = tableBox("stts", 1, {3, duration});
        video.chunks = tableBox("stsc", 1, {1, 1, 1});
        video.sizes = stsz(10, 3);
        video.offsets = tableBox("stco", 3, {100, 100, lastOffset});
        video.inTrack = box("edts", elst({{500, -1}, {40, 0}, {1000, -1}, {80, 40}}));
        const std::string text = readable(PlayedFile(trackFile(video)).metadata());
        const std::size_t at = text.find("videoframerate");
        return at == std::string::npos ? "" : text.substr(at, text.find(',', at) - at);
    };
    EXPECT_EQ(rateOf(40, 100), "videoframerate: 25");
    EXPECT_EQ(rateOf(40, 0xFFFFFFFF), "videoframerate: 25");  // the file ends before the last one
    EXPECT_EQ(rateOf(0, 100), "");
}

TEST(AMFMessage, TellsTagsChaptersAndDownloadHints)
{
    const std::string jpeg = dataTag("covr", 13, "AB");
    const std::string items = dataTag("\xA9nam", 1, "Title") + dataTag("trkn", 0, hexText("0001 0002")) +
                              dataTag("tmpo", 21, hexText("0078")) + jpeg + jpeg + dataTag("covr", 14, "C") +
                              dataTag("xxxx", 99, "?");
    const std::string chapters =
        box("udta", fullBox("chpl", Fields().u8(2).u64(0).u8(1).raw("A").u64(500).u8(2).raw("BC")));
    const std::string tags =
        box("udta", stringTag("cprt", 0x15C7, "(c)") + stringTag("titl", 0x15C7, hexText("FEFF 0041 00E9")));
    const std::string file = movieFile(TrackBoxes().bytes() + itemList(items) + tags + chapters,
                                       fullBox("pdin", Fields().u32(1000).u32(30)));
    const std::string found = readable(metadata(file));
    const std::string expected =
        "tags: {\xC2\xA9nam: Title, trkn: {0: 1, 1: 2}, tmpo: 120, covr: 0, covr: 0, covr: 0, xxxx: 0, "
        "cprt-eng: (c), "
        "titl-eng: A\xC3\xA9}, chapters: {0: {time: 0, title: A}, 1: {time: 0.5, title: BC}}, "
        "progressivedownloadinfo: {0: {rate: 1000, initialdelay: 30}}, trackinfo: ";
    EXPECT_NE(found.find(expected), std::string::npos) << found;

    // In AMF3 a run of images of one kind is one value.
    const std::string body = metadata(file, true);
    EXPECT_EQ(toHex(body.substr(0, 4)), "00 02 00 0A");
    const std::string images = hexText(
        "0004 'covr' 0A 00000002 11 0C 05 'AB' 11 0C 05 'AB'"
        "0004 'covr' 0A 00000001 11 0C 03 'C' 0004 'xxxx' 00");
    EXPECT_NE(body.find(images), std::string::npos);
    EXPECT_NE(body.find(hexText("0004 'tags' 08 00000009")), std::string::npos);
}

TEST(AMFMessage, TellsTimedText)
{
    const std::string start = "onTextData {trackid: 3, text: ";
    const auto modifier = [](const char* type, const Fields& fields) { return box(type, fields); };
    struct Case
    {
        const char* name;
        std::string sample;
        std::string text;
    };
    const std::string hi = hexText("0002 'hi'");
    const Case cases[] = {
        {"empty", "", "}"},
        {"text only", hi, "hi}"},
        {"text longer than the sample", hexText("0010 'hi'"), "hi}"},
        {"UTF-16", hexText("0004 FEFF 00E9"), "\xC3\xA9}"},
        {"style",
         hi + modifier("styl", Fields().u16(2).u16(0).u16(1).u16(2).u8(3).u8(4).u32(0xFF0000FF).zeros(12)),
         "hi, style: {0: {startchar: 0, endchar: 1, fontid: 2, facestyleflags: 3, fontsize: 4, textcolor: "
         "4278190335}, 1: {startchar: 0, endchar: 0, fontid: 0, facestyleflags: 0, fontsize: 0, textcolor: "
         "0}}}"},
        {"style of fewer entries than it says", hi + modifier("styl", Fields().u16(65535).zeros(11)),
         "hi, style: {}}"},
        {"highlight and its colour",
         hi + modifier("hlit", Fields().u16(1).u16(2)) + modifier("hclr", Fields().u32(0x01020304)),
         "hi, highlight: {startchar: 1, endchar: 2}, highlightcolor: 16909060}"},
        {"karaoke", hi + modifier("krok", Fields().u32(7).u16(1).u32(9).u16(0).u16(1)),
         "hi, karaoke: {starttime: 7, highlight: {0: {endtime: 9, startchar: 0, endchar: 1}}}}"},
        {"delay, wrapping, blinking",
         hi + modifier("dlay", Fields().u32(5)) + modifier("twrp", Fields().u8(1)) +
             modifier("blnk", Fields().u16(0).u16(2)),
         "hi, scrolldelay: 5, wrapflag: 1, blink: {startchar: 0, endchar: 2}}"},
        {"link", hi + modifier("href", Fields().u16(0).u16(2).u8(5).raw("a:b/c").u8(3).raw("alt")),
         "hi, hypertext: {startchar: 0, endchar: 2, url: a:b/c, alt: alt}}"},
        {"box and shadow",
         hi + modifier("tbox", Fields().u16(1).u16(2).u16(3).u16(4)) +
             modifier("drpo", Fields().u16(5).u16(0xFFFF)) + modifier("drpt", Fields().u16(7)),
         "hi, textbox: {top: 1, left: 2, bottom: 3, right: 4}, dropshadowoffsetx: 5, dropshadowoffsety: "
         "65535, "
         "dropshadowalpha: 7}"},
        {"unknown boxes, and one of 64-bit size",
         hi + modifier("what", Fields().u32(1)) + largeBox("twrp", Fields().u8(9)), "hi, wrapflag: 9}"},
        {"a modifier that ends early", hi + sizedBox(50, "hlit", Fields().u16(1).u8(2)),
         "hi, highlight: {startchar: 1, endchar: 2}}"},
        {"size 0 ends the list", hi + sizedBox(0, "twrp", Fields().u8(9)), "hi}"},
        {"so does a size below the header's", hi + sizedBox(7, "twrp", Fields().u8(9)), "hi}"},
        {"a few bytes after it", hi + hexText("000001"), "hi}"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(readable(textMessage(c.sample)), start + c.text) << c.name;
    EXPECT_EQ(toHex(textMessage(hi, true)), "00 " + toHex(textMessage(hi)));
    EXPECT_EQ(toHex(textMessage(hi)),
              toHex(hexText("02 000A 'onTextData' 08 00000000 0007 'trackid' 00 4008000000000000"
                            "0004 'text' 02 0002 'hi' 000009")));
}

TEST(AMFMessage, TellsImagesAndXMP)
{
    AMFMessage image;
    image.initFromImage(2, false, bytePtr("abc"), 3);
    const std::string head = "02 000B 'onImageData' 08 00000000 0007 'trackid' 00 4000000000000000";
    EXPECT_EQ(toHex(bytesOf(image)), toHex(hexText(head + "000009")));
    image.initFromImage(2, true, bytePtr("abc"), 3);
    EXPECT_EQ(toHex(bytesOf(image)), toHex(hexText("00" + head + "0004 'data' 11 0C 07 'abc' 000009")));

    const std::string identifier = hexText("BE7ACFCB97A942E89C71999491E3AFAC");
    PlayedFile file(plainFile(plainTrack(audioEntry(".mp3"), 1)) + box("uuid", identifier + "<x/>"));
    ASSERT_EQ(file.status, mp4::kLoadOk);
    EXPECT_EQ(file.contexts(64 + 4),
              std::vector<std::string>{
                  hexText("02 0009 'onXMPData' 08 00000000 0004 'data' 02 0004 '<x/>' 000009")});
}

TEST(AMFMessage, TellsTheProtection)
{
    const auto protectedFile = [](const std::string& keyInfo, const std::string& signature) {
        const std::string key = fullBox("qkey", keyInfo);
        const std::string params =
            fullBox("qprm", fullBox("qeib", Fields().raw("AES").u8(0).u8(16)) + key, 3);
        const std::string header = fullBox("qhdr", fullBox("qdkm", params) + signature, 1, 5);
        const std::string sinf =
            box("sinf", box("frma", "mp4a") + fullBox("schm", Fields().raw("qdkm")) + box("schi", header));
        Movie movie;
        movie.tracks = {plainTrack(audioEntry("enca", esds("\x12\x10") + sinf), 1),
                        plainTrack(box("amf0", Fields().zeros(6).u16(1)), 1)};
        movie.tracks[1].id = 2;
        return buildMovie(movie).bytes;
    };
    const std::string start =
        "|AdditionalHeader {Encryption: {Version: 1, Method: Standard, Flags: 5, Params: {Version: 3, "
        "EncryptionAlgorithm: AES, EncryptionParams: {keyLengh: 16}, KeyInfo: {subType: ";
    const auto texts = [](std::initializer_list<const char*> list) {
        Fields fields;
        for (const char* text : list)
            fields.raw(text).u8(0);
        return fields.bytes();
    };
    struct Case
    {
        std::string keyInfo;
        std::string signature;
        std::string text;
    };
    const Case cases[] = {
        {"", "", "UNKNOWN}}}}"},
        {box("zol ", texts({"a", "b", "c", "d"})), "",
         "ZOL, ZOL_LICENSE: {license: a, policy: b, edcData: c, domain: d}}}}}"},
        {box("wdxs", texts({"m", "l"})), box("qsig", texts({"f", "s"})),
         "Wardenv2, QPRS_METADATA: {Metadata: m, License: l}}}, SigFormat: f, Signature: s}}"},
    };
    for (const Case& c : cases) {
        std::string bytes = protectedFile(c.keyInfo, c.signature);
        for (const bool playable : {true, false}) {
            if (!playable)
                bytes.replace(bytes.find("stts"), 4, "free");
            PlayedFile file(bytes);
            ASSERT_EQ(file.status, mp4::kLoadOk) << c.text;
            const auto headers = file.contexts(64 + 3);
            ASSERT_EQ(headers.size(), 1U) << c.text;
            EXPECT_EQ(readable(headers[0]), start + c.text);
            EXPECT_EQ(file.contexts(64 + 5), std::vector<std::string>{hexText("002100000000")}) << c.text;
        }
    }
}

}  // namespace krx::test
