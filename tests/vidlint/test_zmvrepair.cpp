// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/zmvbuilder.h"
#include "tests/vidlint/inputrunner.h"
#include "tools/zmvutil/vidlint/src/filefix.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <sys/file.h>

namespace krx::test {
namespace {

/// The payload of a default onMetaData message.
std::string defaultMetaData(double duration)
{
    Amf amf;
    amf.string("onMetaData").object().name("duration").number(duration).name("canSeekToEnd").boolean(true);
    return amf.end().bytes();
}

std::string silence(unsigned time)
{
    return messageBytes({ZmvBuilder::kAudio, time, ""});
}

std::string withFlags(std::string bytes, char flags)
{
    bytes[4] = flags;
    return bytes;
}

TEST(ZmvRepair, CorrectedCopies)
{
    // Properties besides the examined ones are kept, in order and in the list's kind.
    Amf wrong =
        Amf().string("onMetaData").ecmaArray(4).name("width").number(640).name("Duration").string("9s");
    wrong.name("nested").object().name("x").null().end().name("canSeekToEnd").boolean(false).end();
    Amf right = Amf().string("onMetaData").ecmaArray(0).name("width").number(640).name("Duration").number(1);
    right.name("nested").object().name("x").null().end().name("canSeekToEnd").boolean(true).end();

    const std::string rest = ZmvBuilder().audio(0).video(1000).bytes().substr(13);
    const std::string head = ZmvBuilder().bytes();
    const auto meta = [](const std::string& payload, std::uint8_t type = 18) {
        return messageBytes({type, 0, payload, 0x010203});
    };
    const auto film = [&](const std::string& payload, std::uint8_t type = 18) {
        return head + meta(payload, type) + rest;
    };
    const std::string stallHead = ZmvBuilder().data(0, metaData(0x01000000 / 1000.0)).audio(0).bytes();
    const std::string late =
        ZmvBuilder().video(5000).audio(5000).video(0x01000000).audio(0x01000000).bytes().substr(13);
    const std::size_t lateVideo = 2 * 15 + 6 + 4;
    const std::string dataStall = ZmvBuilder().audio(0).bytes();
    const std::string cue = messageBytes({18, 5000, metaData(0)});
    // Twice the same object, and a reference to the list itself.
    Amf circle = Amf().string("onMetaData").object().name("self").reference(0).name("a").object().end();
    circle.name("b").reference(1);
    Amf written = circle;
    written.name("duration").number(1).name("canSeekToEnd").boolean(true).end();
    circle.end();

    const struct
    {
        const char* name;
        const char* options;
        std::string input;
        std::string copy;  ///< empty: none is made
    } cases[] = {
        {"sound", "ms", film(metaData(1)), ""},
        {"wrong, not asked", "s", ZmvBuilder(0).data(0, metaData(1, false)).bytes(), ""},
        {"flags", "m", withFlags(film(metaData(1)), '\x52'), withFlags(film(metaData(1)), '\x57')},
        {"both values", "m", film(wrong.bytes()), film(right.bytes())},
        {"encryption mark is dropped", "m", film(wrong.bytes(), 50), film(right.bytes())},
        {"AMF3 type is kept", "m", film('x' + wrong.bytes(), 15), film('\0' + right.bytes(), 15)},
        {"AMF3 type, no list, not asked", "", film('\0' + Amf().string("onMetaData").number(1).bytes(), 15),
         film('\0' + defaultMetaData(1), 15)},
        {"references", "m", film(circle.bytes()), film(written.bytes())},
        {"list of neither", "m", film(Amf().string("onMetaData").ecmaArray().end().bytes()),
         film(defaultMetaData(1))},
        {"object", "m", film(Amf().string("onMetaData").object().end().bytes()), film(defaultMetaData(1))},
        {"strict array", "m", film(Amf().string("onMetaData").strictArray(1).number(1).bytes()),
         film(defaultMetaData(1))},
        {"no list, not asked", "", film(Amf().string("onMetaData").number(1).bytes()),
         film(defaultMetaData(1))},
        {"unparsable", "m", film(Amf().string("onMetaData").raw("\x0E").bytes()), film(defaultMetaData(1))},
        {"missing", "m", head + rest, head + meta(defaultMetaData(1)).replace(8, 3, 3, '\0') + rest},
        {"longer header", "m", ZmvBuilder(5, 1, 11).bytes() + std::string("ab\0\0\0\0", 6) + rest,
         ZmvBuilder(5, 1, 11).bytes() + std::string("ab\0\0\0\0", 6) +
             meta(defaultMetaData(1)).replace(8, 3, 3, '\0') + rest},
        {"stalls", "s", stallHead + late,
         stallHead + silence(5000) + late.substr(0, lateVideo) + silence(0x01000000) +
             late.substr(lateVideo)},
        {"everything, found in another order", "ms", withFlags(dataStall + late.substr(0, lateVideo), 0),
         head + meta(defaultMetaData(5)).replace(8, 3, 3, '\0') + dataStall.substr(13) + silence(5000) +
             late.substr(0, lateVideo)},
        {"stall and metadata at one place", "ms", withFlags(dataStall + cue, 4),
         withFlags(dataStall, 4) + silence(5000) +
             messageBytes({18, 5000,
                           [] {
                               std::string payload = metaData(5);
                               return payload.replace(17, 1, 1,
                                                      '\0');  // the count of an ECMA array is written as 0
                           }()})},
    };
    InputRunner runner;
    for (const auto& c : cases) {
        std::filesystem::remove(runner.dir.bytes("in.zmv.new"));
        const std::string report = runner.report(c.input, c.options);
        const std::string name = runner.dir.bytes(c.copy.empty() ? "in.zmv" : "in.zmv.new");
        std::string expected = "TIME \t" + name + " passed\n\n";
        if (!c.copy.empty())
            expected.insert(0, "TIME \tCreating new file: " + name + "\n");
        EXPECT_EQ(report, expected) << c.name;
        EXPECT_EQ(runner.invalid, 0) << c.name;
        EXPECT_EQ(runner.dir.read("in.zmv"), c.input) << c.name;
        EXPECT_EQ(runner.dir.read("in.zmv.new"), c.copy) << c.name;
        EXPECT_EQ(std::filesystem::exists(runner.dir.bytes("in.zmv.new")), !c.copy.empty()) << c.name;
    }
    EXPECT_EQ(silence(5000), std::string("\x08\0\0\0\0\x13\x88\0\0\0\0\0\0\0\x0B", 15));
    EXPECT_EQ(silence(0x01000000), std::string("\x08\0\0\0\0\0\0\1\0\0\0\0\0\0\x0B", 15));
}

TEST(ZmvRepair, WhatCannotBeRepairedIsReportedAsWithoutTheOption)
{
    // Each array holds the one before it twice: written out, they would be 2^40 bytes.
    Amf explosion = Amf().string("onMetaData").object().name("0").strictArray(1).number(0);
    for (unsigned char i = 1; i <= 40; ++i)
        explosion.name(std::to_string(i)).strictArray(2).reference(i).reference(i);
    explosion.end();
    // A list that fills a message before the corrected values are added.
    Amf large = Amf().string("onMetaData").object();
    for (int i = 0; i < 256; ++i)
        large.name("n").string(std::string(65525, 'x'));
    large.name("n").string(std::string(1246, 'x')).end();
    const Amf reading = Amf().string("onMetaData").object().name("duration").number(1).end();
    InputRunner runner;
    for (const Amf& amf : {explosion, large}) {
        const ZmvBuilder film = ZmvBuilder(5).data(0, amf).audio(0).video(1000);
        for (const char* options : {"w", "wm"})
            EXPECT_EQ(runner.findings(film.bytes(), options), "w100 w101 e119") << amf.bytes().size();
        // A later one decides.
        EXPECT_EQ(runner.findings(ZmvBuilder(film).data(1000, reading).bytes(), "wm"),
                  "w100 w101 w101 new ok");
    }
    EXPECT_LT(runner.report(ZmvBuilder().data(0, explosion).bytes(), "v").size(), 100000U);

    // Silence would be earlier than the audio before it, or later than the audio after it.
    const auto meta = [](double seconds) { return ZmvBuilder().data(0, metaData(seconds)); };
    const struct
    {
        std::string bytes;
        const char* options;
        const char* findings;
    } cases[] = {
        {meta(0.04).audio(46).video(40).bytes(), "ws", "w110 ok"},
        {meta(1).audio(0).video(3000).audio(1000).bytes(), "ws", "w110 ok"},
        {meta(1).audio(0).video(3000).audio(1000, 0).bytes(), "ws", "w110 ok"},
        {meta(1).audio(0).video(3000).audio(1000).bytes(), "Ws", "e110"},
        {meta(3).audio(0).video(3000).video(3001).audio(3000).bytes(), "Ws", "new ok"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(runner.findings(c.bytes, c.options), c.findings);
}

TEST(ZmvRepair, StretchesOf2GiBAreNotCopied)
{
    // Holes instead of payloads: the file takes hardly any room.
    InputRunner runner;
    const std::string head = ZmvBuilder(0).data(0, metaData(0)).bytes();
    const SRString path = runner.dir.write("in.zmv", head);
    std::ofstream file(runner.dir.bytes("in.zmv"), std::ios::binary | std::ios::in);
    std::string message = messageBytes({ZmvBuilder::kVideo, 0, "", 0, 0xFFFFFF});
    const long long messageSize = 0xFFFFFF + 15;
    const long long count = (0x80000000LL - static_cast<long long>(head.size()) + 5) / messageSize + 1;
    for (long long i = 0; i < count; ++i) {
        const long long start = static_cast<long long>(head.size()) + i * messageSize;
        file.seekp(start).write(message.data(), 11);
        file.seekp(start + messageSize - 4).write(message.data() + 11, 4);
    }
    file.close();

    ReportCapture capture;
    VideoValidationJob job(capture.writer());
    job.parameters = parametersFor("m");
    EXPECT_FALSE(job.validateFile(path));
    EXPECT_NE(capture.text().find("Error:\t-17\tBox too large.\t"), std::string::npos) << capture.text();
    EXPECT_EQ(runner.dir.read("in.zmv.new"), std::string("\0\0\0\1\1", 5));
}

TEST(ZmvRepair, LocksTheCopyUntilItIsAnnounced)
{
    InputRunner runner;
    runner.dir.write("in.zmv", ZmvBuilder().audio(0).video(1000).bytes());
    int locked = 0;
    ReportWriter writer([&](std::string_view text) {
        const util::SRAutoFile copy(::open(runner.dir.bytes("in.zmv.new").c_str(), O_RDONLY));
        locked += text.find(".new passed") != std::string_view::npos &&
                  ::flock(copy.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        return true;
    });
    VideoValidationJob job(writer);
    job.parameters = parametersFor("m");
    job.files = {runner.dir.bytes("in.zmv")};
    EXPECT_EQ(job.validateAllFiles(), 0);
    EXPECT_EQ(locked, 1);
}

TEST(ZmvRepair, NeverTouchesTheInputOrAnythingThatIsNoFile)
{
    namespace fs = std::filesystem;
    const std::string input = ZmvBuilder().audio(0).video(1000).bytes();
    InputRunner runner;
    const std::string copy = runner.dir.bytes("in.zmv.new");
    runner.dir.write("in.zmv", input);
    const auto expectRefused = [&](const char* what) {
        EXPECT_EQ(runner.findings(input, "m"), "new e6") << what;
        EXPECT_EQ(runner.dir.read("in.zmv"), input) << what;
        fs::remove_all(copy);
    };
    fs::create_symlink("in.zmv", copy);
    expectRefused("symbolic link");
    fs::create_hard_link(runner.dir.bytes("in.zmv"), copy);
    expectRefused("hard link");
    fs::create_symlink("/dev/full", copy);
    expectRefused("device");
    fs::create_directory(copy);
    expectRefused("directory");
    ASSERT_EQ(::mkfifo(copy.c_str(), 0666), 0);
    expectRefused("pipe");
    fs::create_symlink("missing/file", copy);
    expectRefused("link to nowhere");

    const std::string old(100000, 'x');
    runner.dir.write("in.zmv.new", old);
    {
        const util::SRAutoFile other(::open(copy.c_str(), O_RDONLY));
        ASSERT_EQ(::flock(other.get(), LOCK_SH), 0);
        EXPECT_EQ(runner.findings(input, "m"), "new e6");
        EXPECT_EQ(runner.dir.read("in.zmv.new"), old);
    }
    EXPECT_EQ(runner.findings(input, "m"), "new ok");
    EXPECT_LT(runner.dir.read("in.zmv.new").size(), 200U);
}

}  // namespace
}  // namespace krx::test
