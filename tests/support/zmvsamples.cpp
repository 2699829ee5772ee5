// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/zmvsamples.h"

#include "tests/support/zmvbuilder.h"

namespace krx::test {
namespace {

/// Audio every 40 ms and video every 80 ms up to the given time.
ZmvBuilder& media(ZmvBuilder& zmv, unsigned from, unsigned to)
{
    for (unsigned time = from; time <= to; time += 40) {
        if (time % 80 == 0)
            zmv.video(time);
        zmv.audio(time);
    }
    return zmv;
}

/// A file of audio and video with the given first message.
std::string film(const std::string& metaDataPayload, unsigned char type = ZmvBuilder::kData,
                 unsigned char flags = 5)
{
    ZmvBuilder zmv(flags);
    zmv.data(0, metaDataPayload, type);
    return media(zmv, 0, 800).bytes();
}

std::string encrypted()
{
    ZmvBuilder zmv;
    zmv.data(0, metaData(0.8), ZmvBuilder::kData | ZmvBuilder::kEncrypted);
    for (unsigned time = 0; time <= 800; time += 80) {
        zmv.message({ZmvBuilder::kVideo | ZmvBuilder::kEncrypted, time, "\x27\x01"});
        zmv.message({ZmvBuilder::kAudio | ZmvBuilder::kEncrypted, time, "\xAF\x01"});
    }
    return zmv.bytes();
}

/// A leading zero, the name in AMF0, then the AMF3 value that the marker announces and the body holds.
std::string amf3MetaData(const std::string& body)
{
    const std::string duration(
        "\x11"
        "duration"
        "\x05\x3F\xE9\x99\x99\x99\x99\x99\x9A",
        18);
    const std::string canSeekToEnd(
        "\x19"
        "canSeekToEnd"
        "\x03\x01",
        15);
    return Amf()
        .raw(std::string_view("\0", 1))
        .string("onMetaData")
        .raw("\x11" + body + duration + canSeekToEnd)
        .bytes();
}

std::string stall()
{
    ZmvBuilder zmv;
    zmv.data(0, metaData(5.04));
    media(zmv, 0, 400).video(5000).video(5040).audio(5040);
    return zmv.bytes();
}

std::string cuePoints()
{
    Amf cue;
    cue.string("onCuePoint").object().name("name").string("chapter").name("time").number(0.4);
    cue.name("parameters").object().name("id").number(7).name("tags").strictArray(2).string("a").string("b");
    cue.end().end();
    ZmvBuilder zmv;
    zmv.data(0, metaData(0.8));
    media(zmv, 0, 400).data(400, cue).data(400, Amf().string("onText").string("no object"));
    return media(zmv, 440, 800).bytes();
}

std::string unparsable()
{
    // The array promises more values than there are bytes.
    return film(Amf().string("onMetaData").strictArray(0x00FFFFFF).number(1).bytes());
}

}  // namespace

std::vector<ZmvSample> zmvSamples()
{
    const std::string sound = film(metaData(0.8));
    const std::string stringMetaData = film(Amf().string("onMetaData").string("duration=0.8").bytes());
    const std::string strictArray =
        Amf().string("onMetaData").strictArray(2).number(0.8).boolean(true).bytes();
    const std::string cannotSeek = metaData(0.8, false);
    const std::string noCanSeek =
        Amf().string("onMetaData").object().name("DURATION").string("0.8").end().bytes();

    ZmvBuilder noMetaData;
    media(noMetaData, 0, 800);
    ZmvBuilder badFooter;
    badFooter.data(0, metaData(0.08)).message({ZmvBuilder::kVideo, 0, "\x17", 0, -1, 13}).video(80);
    ZmvBuilder badLastFooter;
    badLastFooter.data(0, metaData(0.08)).message({ZmvBuilder::kVideo, 80, "\x17", 0, -1, 4000});
    ZmvBuilder unknownType;
    unknownType.data(0, metaData(0.08)).message({20, 40, "\x02"}).video(80);
    ZmvBuilder backward;
    backward.data(0, metaData(0.04)).audio(80).video(0).audio(79).video(40);
    // Flags 5 announce audio and video.
    ZmvBuilder noVideo(5);
    noVideo.data(0, metaData(0.04)).audio(0).audio(40);
    ZmvBuilder noAudio(5);
    noAudio.data(0, metaData(0.08)).video(0).video(80);
    ZmvBuilder badLength;
    badLength.data(0, metaData(0.08)).message({ZmvBuilder::kVideo, 80, "\x17", 0, 1000, 12});
    const std::string noBackPointer = ZmvBuilder(5, 1, 9).bytes().substr(0, 9) + std::string("\0\0\0\1", 4) +
                                      messageBytes({ZmvBuilder::kVideo, 0, "\x17"});

    return {
        {"sound.zmv", sound},
        {"encrypted.zmv", encrypted()},
        {"cue-points.zmv", cuePoints()},
        {"amf3.zmv", film(amf3MetaData("\x09\x01"), ZmvBuilder::kDataAmf3)},
        {"faults/119-amf3-object.zmv", film(amf3MetaData("\x0A\x0B\x01"), ZmvBuilder::kDataAmf3)},
        {"faults/119-string-metadata.zmv", stringMetaData},
        {"faults/6-copy.zmv", stringMetaData},
        {"faults/100-array-metadata.zmv", film(strictArray)},
        {"faults/100-wrong-duration.zmv", film(metaData(30))},
        {"faults/101-cannot-seek.zmv", film(cannotSeek)},
        {"faults/101-no-can-seek.zmv", film(noCanSeek)},
        {"faults/119-no-metadata.zmv", noMetaData.bytes()},
        {"faults/110-stall.zmv", stall()},
        {"faults/113-video-flag.zmv", film(metaData(0.8), ZmvBuilder::kData, 4)},
        {"faults/114-audio-flag.zmv", film(metaData(0.8), ZmvBuilder::kData, 1)},
        {"faults/115-no-video.zmv", noVideo.bytes()},
        {"faults/116-no-audio.zmv", noAudio.bytes()},
        {"faults/5-empty-body.zmv", ZmvBuilder().bytes()},
        {"faults/5-length.zmv", badLength.bytes()},
        {"faults/9-truncated.zmv", sound.substr(0, sound.size() - 9)},
        {"faults/7-signature.zmv", std::string(sound).replace(2, 1, 1, 'W')},
        {"faults/8-data-position.zmv", ZmvBuilder(5, 1, 4).bytes() + sound.substr(9)},
        {"faults/9-first-footer.zmv", noBackPointer},
        {"faults/9-footer.zmv", badFooter.bytes()},
        {"faults/9-last-footer.zmv", badLastFooter.bytes()},
        {"faults/10-unknown-type.zmv", unknownType.bytes()},
        {"faults/11-backward.zmv", backward.bytes()},
        {"faults/12-unparsable.zmv", unparsable()},
    };
}

}  // namespace krx::test
