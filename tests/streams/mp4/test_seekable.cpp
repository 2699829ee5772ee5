// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// The bytes of each kind of message.

#include "modules/streams/mp4/codecheader.h"
#include "tests/streams/mp4/playfixture.h"
#include "tests/support/assertrecorder.h"
#include "tests/support/hextext.h"

#include <gtest/gtest.h>

namespace krx::test {
namespace {

using namespace krx::mp4;

std::string bytesOf(const CodecHeader& header)
{
    unsigned char out[kMaxCodecHeader];
    const unsigned n = writePreamble(header, out);
    return toHex({reinterpret_cast<const char*>(out), n});
}

SampleEntry audio(double rate, unsigned channels, unsigned sampleSize)
{
    SampleEntry entry;
    entry.sampleRate = rate;
    entry.channelCount = channels;
    entry.sampleSize = sampleSize;
    return entry;
}

std::string protectedBoxes(const char* format, bool selective, unsigned ivLength, unsigned version)
{
    const std::string access = fullBox("qdaf", Fields().u8(selective).u8(0).u8(ivLength));
    const std::string header = fullBox("qhdr", access, version, 5);
    return box("sinf", box("frma", format) + fullBox("schm", Fields().raw("qdkm")) + box("schi", header));
}

/// A protected audio track of one sample; each is a file of its own.
std::string protectedFile(std::string_view sample, bool selective, unsigned ivLength, unsigned version)
{
    MovieTrack track = plainTrack(
        audioEntry("enca", esds("\x12\x10") + protectedBoxes("mp4a", selective, ivLength, version)), 1,
        static_cast<std::uint32_t>(sample.size()));
    Movie movie;
    movie.tracks = {track};
    BuiltMovie built = buildMovie(movie);
    built.bytes.replace(built.samples[0][0].offset, sample.size(), sample);
    return built.bytes;
}

}  // namespace

TEST(CodecHeader, OfEachVideoCodec)
{
    SampleEntry picture;
    picture.width = 642;
    picture.height = -483;
    CodecHeader key;
    key.entry = &picture;
    key.keyFrame = true;
    key.compositionMillis = 40;
    CodecHeader inter = key;
    inter.keyFrame = false;
    inter.compositionMillis = -2;
    struct Case
    {
        SampleType type;
        const char* key;
        const char* inter;
    };
    // The low nibbles of the size are 2 and 13 (-483 is a multiple of 16 and 13).
    const Case cases[] = {
        {kSampleVP6, "14 D2", "24 D2"},
        {kSampleVP6Alpha, "15 D2", "25 D2"},
        {kSampleAVC, "17 01 00 00 28", "27 01 FF FF FE"},
        {kSampleH263, "12", "22"},
        {kSampleScreenVideo1, "13", "23"},
        {kSampleScreenVideo2, "16", "26"},
        {kSampleText, "", ""},
        {kSampleOther, "", ""},
    };
    for (const Case& c : cases) {
        key.type = inter.type = c.type;
        EXPECT_EQ(bytesOf(key), c.key) << c.type;
        EXPECT_EQ(bytesOf(inter), c.inter) << c.type;
    }
    key.sampleFlags = 0x800000;
    key.type = kSampleH263;
    EXPECT_EQ(bytesOf(key), "32") << "disposable";
}

TEST(CodecHeader, OfEachAudioCodec)
{
    struct Case
    {
        SampleType type;
        SampleEntry entry;
        const char* bytes;
    };
    const Case cases[] = {
        {kSampleMP3, audio(48000, 2, 16), "2F"},       {kSampleMP3, audio(22050, 1, 8), "2A"},
        {kSampleMP3, audio(11025, 2, 1), "25"},        {kSampleMP3, audio(8000, 1, 16), "2E"},
        {kSampleMP3, audio(0, 0, 16), "2F"},           {kSampleMP3, audio(43000.9, 2, 16), "2F"},
        {kSampleMP3, audio(12000, 2, 16), "2F"},       {kSampleMP3, audio(11999.9, 2, 16), "27"},
        {kSampleAAC, audio(8000, 1, 1), "AF 01"},      {kSampleSpeex, audio(16000, 1, 16), "B2"},
        {kSampleNellymoser, audio(8000, 1, 16), "52"}, {kSampleNellymoser, audio(8000, 1, 1), "50"},
        {kSampleNellymoser, audio(16000, 2, 1), "40"}, {kSampleNellymoser, audio(16999, 2, 16), "42"},
        {kSampleNellymoser, audio(5512, 1, 16), "62"}, {kSampleNellymoser, audio(32000, 2, 1), "6D"},
    };
    for (const Case& c : cases) {
        CodecHeader header;
        header.type = c.type;
        header.entry = &c.entry;
        EXPECT_EQ(bytesOf(header), c.bytes) << c.type << ' ' << c.entry.sampleRate;
    }

    const SampleEntry silent = audio(0.5, 1, 16);
    CodecHeader bad;
    bad.type = kSampleNellymoser;
    bad.entry = &silent;
    EXPECT_THROW(bytesOf(bad), BadSampleError);
    EXPECT_EQ(sampleRateDoubleToUnsigned(4000), 4000U);
    EXPECT_EQ(sampleRateDoubleToUnsigned(4001), 5000U);
    EXPECT_EQ(sampleRateDoubleToUnsigned(1e12), 4294967295U);
}

TEST(Seekable, KnowsTheTypesOfSamples)
{
    AssertRecorder asserts;
    const unsigned messageTypes[] = {0, 9, 9, 9, 9, 9, 9, 8, 8, 8, 8, 18, 18, 18, 15, 20, 9, 8, 4};
    const unsigned headers[] = {0, 2, 2, 5, 1, 1, 1, 1, 2, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};
    for (unsigned type = 0; type < 19; ++type) {
        EXPECT_EQ(Seekable::getMessageType(type), messageTypes[type]);
        EXPECT_EQ(Seekable::getExtraHeaderAmt(type), headers[type]);
    }
    EXPECT_EQ(asserts.take().size(), 2U);  // the two encrypted types have no header of their own
    EXPECT_EQ(Seekable::getMessageType(19), 0);
    EXPECT_EQ(Seekable::getExtraHeaderAmt(19), 0U);
    EXPECT_EQ(asserts.take().size(), 2U);
}

TEST(Seekable, WritesEncryptionPreambles)
{
    struct Case
    {
        const char* name;
        const char* sample;
        bool selective;
        unsigned ivLength;
        unsigned version;
        const char* message;  ///< behind the codec header; null: the load fails
    };
    const Case cases[] = {
        {"whole sample: the payload goes on one byte before the vector's end", "01 A1A2A3A4 B1B2", false, 4,
         1, "01 'Encryption' 00 000004 A1A2A3A4 A4 B1B2"},
        {"whole sample, just long enough", "01 A1A2A3A4", false, 4, 1,
         "01 'Encryption' 00 000004 A1A2A3A4 A4"},
        {"whole sample, too short for a vector", "01 A1A2A3", false, 4, 1, "01 A1A2A3"},
        {"whole sample, no vector", "01 02", false, 0, 1, "01 'Encryption' 00 000000 01 02"},
        {"selective, version 1, encrypted", "80 A1A2 B1", true, 2, 1, "01 'Encryption' 00 000002 A1A2 B1"},
        {"selective, version 1, clear", "00 B1B2", true, 2, 1, "B1B2"},
        {"selective, version 1, too short", "80 A1", true, 2, 1, "A1"},
        {"selective, version 1, empty", "", true, 2, 1, ""},
        {"selective, version 2, encrypted", "80 A1A2 B1", true, 2, 2, "01 'SE' 00 000003 80 A1A2 B1"},
        {"selective, version 2, clear", "81 B1B2", true, 2, 2, "01 'SE' 00 000001 00 B1B2"},
        {"selective, version 2, too short", "80 A1", true, 2, 2, nullptr},
        {"selective, version 2, empty", "", true, 2, 2, "01 'SE' 00 000001 00"},
        {"selective, another version", "80 A1A2 B1", true, 2, 3, nullptr},
    };
    for (const Case& c : cases) {
        PlayedFile file(protectedFile(hexText(c.sample), c.selective, c.ivLength, c.version));
        ASSERT_EQ(file.status, kLoadOk) << c.name;
        const auto messages = file.load(file.segments().at(0), c.message != nullptr);
        ASSERT_GE(messages.size(), 1U) << c.name;
        // The decoder configuration is clear.
        EXPECT_EQ(messages[0].type, 8U) << c.name;
        EXPECT_EQ(toHex(messages[0].bytes), "AF 00 12 10") << c.name;
        if (!c.message) {
            EXPECT_EQ(messages.size(), 1U) << c.name;
            ASSERT_EQ(file.context.lines.size(), 1U) << c.name;
            EXPECT_NE(file.context.lines[0].text.find("-27\t"), std::string::npos) << c.name;
            continue;
        }
        ASSERT_EQ(messages.size(), 3U) << c.name;
        EXPECT_EQ(messages[1].type, 0x28U) << c.name;
        EXPECT_EQ(toHex(messages[1].bytes), toHex("\xAF\x01" + hexText(c.message))) << c.name;
        EXPECT_EQ(messages[2].bytes, "") << c.name;
    }
}

/// The file ends in the first byte or in the vector of its sample when the segment is loaded.
TEST(Seekable, ReportsEncryptedSamplesThatAreCutOff)
{
    for (const std::size_t left : {0U, 2U}) {
        PlayedFile file(protectedFile(hexText("80 A1A2A3A4 B1"), true, 4, 2));
        file.io.bytes().resize(file.io.bytes().size() - 6 + left);
        EXPECT_EQ(file.load(file.segments().at(0), false).size(), 1U);
        ASSERT_EQ(file.context.lines.size(), 1U);
        EXPECT_NE(file.context.lines[0].text.find("-27\t"), std::string::npos);
    }
}

TEST(Seekable, CutsAggregatesBehindTheMessageThatIsTooMuch)
{
    // Records of 11 + 1 + 10 + 4 = 26 bytes, and an ender of 15.
    struct Case
    {
        unsigned maximum;
        std::vector<std::size_t> sizes;
    };
    const Case cases[] = {{1000, {119}},       {25, {26, 26, 26, 26, 15}},
                          {26, {52, 52, 15}},  {51, {52, 52, 15}},
                          {52, {78, 41}},      {119, {119}},
                          {118, {119}},        {0, {26, 26, 26, 26, 15}},
                          {4294967295U, {119}}};
    for (const Case& c : cases) {
        PlayedFile file(plainFile(plainTrack(audioEntry(".mp3"), 4)), true, c.maximum);
        std::vector<std::size_t> sizes;
        for (const auto& message : file.messages())
            sizes.push_back(message.bytes.size());
        EXPECT_EQ(sizes, c.sizes) << c.maximum;
    }
}

TEST(Seekable, KeepsAggregatesBelow16MiB)
{
    // Three segments: the second sample fills an aggregate to the last byte, the third one fits into none.
    constexpr std::uint32_t kFull = AggMsg::kMaxSize - 16;
    Movie movie;
    movie.tracks = {plainTrack(audioEntry(".mp3"), 4)};
    movie.tracks[0].samples[1].size = kFull;
    movie.tracks[0].samples[2].size = kFull + 1;
    movie.samplesPerFragment = 4;  // where samples have no limit
    PlayedFile file(buildMovie(movie).bytes, true, 4294967295U);
    std::vector<std::pair<unsigned, std::size_t>> found;
    for (const auto& message : file.messages())
        found.emplace_back(message.type, message.bytes.size());
    EXPECT_EQ(found, (std::vector<std::pair<unsigned, std::size_t>>{
                         {22, 26}, {22, AggMsg::kMaxSize}, {8, kFull + 2}, {22, 26 + 15}}));
}

}  // namespace krx::test
