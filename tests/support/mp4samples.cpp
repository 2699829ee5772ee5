// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/mp4samples.h"

#include "tests/support/mp4builder.h"

namespace krx::test {
namespace {

MovieTrack plainTrack(std::uint32_t id, const std::string& entry, std::uint32_t samples = 6)
{
    MovieTrack track;
    track.id = id;
    track.entries = {entry};
    track.samples.assign(samples, {20, 100, 0, true, 1});
    return track;
}

Movie shortMovie()
{
    Movie movie;
    movie.tracks = {avcTrack(12), aacTrack(12)};
    return movie;
}

std::string text(std::string_view s)
{
    return std::string(s) + '\0';
}

/// The boxes of a protected entry.
std::string protection()
{
    const std::string key =
        fullBox("qkey", box("zol ", text("license") + text("policy") + text("edc") + text("dom")));
    const std::string params = fullBox("qprm", fullBox("qeib", text("AES-CBC") + '\x10') + key, 1);
    const std::string header =
        fullBox("qhdr", fullBox("qdkm", params) + box("qsig", text("fmt") + text("sig")), 2, 0);
    return box("sinf", box("frma", "avc1") + fullBox("schm", Fields().raw("qdkm").u32(1)) +
                           box("schi", header + fullBox("qdaf", std::string("\1\0\x10", 3))));
}

std::string data(std::uint32_t type, std::string_view payload)
{
    return box("data", Fields().u32(type).u32(0).raw(payload));
}

std::string userData()
{
    const std::string items =
        box("\xA9nam", data(1, "A name")) + box("trkn", data(0, Fields().u16(0).u16(3).u32(0))) +
        box("covr", data(13, "jpeg") + data(14, "png")) + box("tmpo", data(21, "\0\x78"));
    const std::string chapters =
        fullBox("chpl", Fields().u8(2).u64(0).u8(5).raw("Start").u64(200).u8(3).raw("End"));
    const std::string xmp =
        box("uuid", Fields().u64(0xBE7ACFCB97A942E8ULL).u64(0x9C71999491E3AFACULL).raw("<x:xmpmeta/>"));
    return box("udta", fullBox("meta", fullBox("hdlr") + box("ilst", items)) + chapters +
                           fullBox("cprt", Fields().u16(0x15C7).raw("Nobody"))) +
           xmp + fullBox("pdin", Fields().u32(1000).u32(50));
}

std::string timedTextEntry()
{
    return box("tx3g", Fields()
                           .zeros(8)
                           .u32(0)
                           .u8(1)
                           .u8(0xFF)
                           .u32(0xFF)
                           .zeros(8)
                           .u32(0)
                           .u16(1)
                           .u8(0)
                           .u8(18)
                           .u32(0xFFFFFFFF)
                           .raw(box("ftab", Fields().u16(1).u16(1).u8(5).raw("Serif"))));
}

/// A change to the first video and audio tracks of a short movie.
template <typename Change>
std::string changed(Change change)
{
    Movie movie = shortMovie();
    change(movie);
    return buildMovie(movie).bytes;
}

/// Puts bytes in place of as many others.
std::string patched(std::string bytes, std::string_view find, std::size_t offset,
                    std::string_view replacement)
{
    return bytes.replace(bytes.find(find) + offset, replacement.size(), replacement);
}

}  // namespace

std::vector<Mp4Sample> mp4Samples()
{
    const std::string sound = buildMovie(shortMovie()).bytes;
    Movie fragmented = shortMovie();
    fragmented.samplesPerFragment = 5;
    Movie many;
    many.tracks = {plainTrack(1, videoEntry("VP6A")), plainTrack(2, audioEntry("nmos", {}, 8000, 1)),
                   plainTrack(3, timedTextEntry()), plainTrack(4, box("amf0", std::string(8, '\0'))),
                   plainTrack(5, box("png ", std::string(8, '\0')))};
    Movie locked;
    locked.tracks = {plainTrack(1, videoEntry("encv", box("avcC", avcConfiguration()) + protection()))};
    locked.tracks[0].syncTable = true;
    Movie protectedMp3;
    protectedMp3.tracks = {plainTrack(1, audioEntry("enca", esds("\x12\x10") + protection()))};

    return {
        {"sound.mp4", sound, "AVC and AAC, composition offsets, sync samples, an initial gap"},
        {"sound-end.mp4", changed([](Movie& m) { m.movieFirst = false; }), "the movie box behind the media"},
        {"fragments.mp4", buildMovie(fragmented).bytes, "the same samples in fragments"},
        {"wide.mp4", changed([](Movie& m) { m.tracks[0].wideOffsets = true; }), "64-bit chunk offsets"},
        {"kinds.mp4", buildMovie(many).bytes, "alpha video, speech, timed text, data and an image track"},
        {"metadata.mp4", changed([](Movie& m) { m.extraInMovie = userData(); }),
         "tags, chapters, XMP, rates"},
        {"encrypted-video.mp4", buildMovie(locked).bytes, "a protected AVC track"},
        {"encrypted-audio.mp4", buildMovie(protectedMp3).bytes, "a protected AAC track"},
        {"flags.mp4",
         changed([](Movie& m) { m.tracks[0].extraInTable = fullBox("sdtp", std::string(12, '\x10')); }),
         "sample dependency flags"},
        {"free.mp4", changed([](Movie& m) {
             m.extraInMovie = box("free", std::string(40, '\0')) + box("mvex");
             m.tracks[0].extraInTrack = box("skip", "room");
         }),
         "free space"},
        {"unknown-box.mp4", box("wide") + sound, "a box that is not known"},
        {"unknown-version.mp4", changed([](Movie& m) { m.extraInMovie = fullBox("chpl", "", 7); }),
         "a chapter list of an unknown version"},
        {"edits.mp4", changed([](Movie& m) {
             m.tracks[0].edits = {{10, 0}, {10, 0}};
         }),
         "an unsupported edit list"},
        {"no-sync.mp4", changed([](Movie& m) { m.tracks[0].syncTable = false; }),
         "video without sync samples"},
        {"profile.mp4", changed([](Movie& m) { m.tracks[0].entries = {avcEntry(88)}; }),
         "a profile not allowed"},
        {"two-videos.mp4", changed([](Movie& m) { m.tracks.push_back(avcTrack(3)), m.tracks[2].id = 3; }),
         "a second video track"},
        {"unsupported.mp4",
         changed([](Movie& m) { m.tracks[1].entries = {box("alac", std::string(28, '\0'))}; }),
         "an audio track of an unsupported type"},
        {"no-track.mp4", ftyp() + box("moov", mvhd(1000, 0)), "no track", 14},
        {"no-movie.mp4", ftyp() + box("mdat", "media"), "no movie box", 13},
        {"other-format.mp4", std::string("ZMV\1\5\0\0\0\x09\0\0\0\0", 13), "another format's signature", 26},
        {"cut.mp4", sound.substr(0, 400), "cut in its movie box", 18},
        {"two-movies.mp4", sound + box("moov", mvhd(1, 1)), "two movie boxes", 19},
        {"no-timescale.mp4", ftyp() + box("moov", mvhd(0, 1)), "a movie timescale of 0", 21},
        {"sizes.mp4", patched(sound, "stsz", 12, Fields().u32(0x1000)),
         "more sample sizes than their box holds", 22},
        {"large-sample.mp4", patched(sound, "stsz", 16, Fields().u32(0x1000000)),
         "a sample larger than the file", 23},
        {"late-chapter.mp4",
         changed([](Movie& m) { m.extraInMovie = fullBox("chpl", Fields().u8(1).u64(1000000).u8(0)); }),
         "a chapter behind the end", 24},
        {"scheme.mp4", patched(buildMovie(locked).bytes, "schm", 8, "cenc"),
         "an unsupported protection scheme", 27},
        {"table.mp4", patched(sound, "stts", 8, Fields().u32(0x10000000)),
         "a table that the file cannot hold", 28},
        {"fragment.mp4", sound + box("moof", fullBox("mfhd", Fields().u32(1))), "an unannounced fragment",
         29},
        {"order.mp4", patched(buildMovie(fragmented).bytes, "mfhd", 8, Fields().u32(7)),
         "fragments out of order", 30},
        {"hierarchy.mp4", ftyp() + box("moov", mdhd(1, 1)), "a media header outside a track", 31},
    };
}

}  // namespace krx::test
