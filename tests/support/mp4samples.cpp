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

/// The boxes of a protected entry, which was of the original type.
std::string protection(std::string_view original)
{
    const std::string key =
        fullBox("qkey", box("zol ", text("license") + text("policy") + text("edc") + text("dom")));
    const std::string params = fullBox("qprm", fullBox("qeib", text("AES-CBC") + '\x10') + key, 1);
    const std::string header =
        fullBox("qhdr", fullBox("qdkm", params) + box("qsig", text("fmt") + text("sig")), 2, 0);
    return box("sinf", box("frma", original) + fullBox("schm", Fields().raw("qdkm").u32(1)) +
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
    locked.tracks = {plainTrack(1, videoEntry("encv", box("avcC", avcConfiguration()) + protection("avc1")))};
    locked.tracks[0].syncTable = true;
    Movie protectedAac;
    protectedAac.tracks = {plainTrack(1, audioEntry("enca", esds("\x12\x10") + protection("mp4a")))};

    const std::string sdtp = fullBox("sdtp", std::string(12, '\x10'));
    // The track does not list the samples of fragments.
    Movie earlyFlags = fragmented;
    earlyFlags.tracks[0].extraInTable = sdtp;
    const std::string unsupported = box("alac", std::string(28, '\0'));
    Movie onlyUnsupported;
    onlyUnsupported.tracks = {plainTrack(1, unsupported)};
    // Only the fields of a track header that are read: 65 fit a small file.
    std::string tracks;
    for (std::uint32_t id = 1; id <= 65; ++id)
        tracks += box("trak", fullBox("tkhd", Fields().zeros(8).u32(id)));

    return {
        {"sound.mp4", sound},
        {"sound-end.mp4", changed([](Movie& m) { m.movieFirst = false; })},
        {"fragments.mp4", buildMovie(fragmented).bytes},
        {"wide.mp4", changed([](Movie& m) { m.tracks[0].wideOffsets = true; })},
        {"kinds.mp4", buildMovie(many).bytes},
        {"metadata.mp4", changed([](Movie& m) { m.extraInMovie = userData(); })},
        {"encrypted-video.mp4", buildMovie(locked).bytes},
        {"encrypted-audio.mp4", buildMovie(protectedAac).bytes},
        {"flags.mp4", changed([&](Movie& m) { m.tracks[0].extraInTable = sdtp; })},
        {"free.mp4", changed([](Movie& m) {
             m.extraInMovie = box("free", std::string(40, '\0')) + box("mvex");
             m.tracks[0].extraInTrack = box("skip", "room");
         })},
        {"faults/5-two-bytes.mp4", sound.substr(0, 2)},
        {"faults/13-no-movie.mp4", ftyp() + box("mdat", "media")},
        {"faults/14-no-track.mp4", ftyp() + box("moov", mvhd(1000, 0))},
        {"faults/14-only-unsupported.mp4", buildMovie(onlyUnsupported).bytes},
        {"faults/15-tracks.mp4",
         ftyp() + box("moov", mvhd(1000, 0) + tracks) + box("mdat", std::string(60, 'x'))},
        {"faults/18-cut.mp4", sound.substr(0, 400)},
        {"faults/19-two-movies.mp4", sound + box("moov", mvhd(1, 1))},
        {"faults/21-no-timescale.mp4", ftyp() + box("moov", mvhd(0, 1))},
        {"faults/22-sizes.mp4", patched(sound, "stsz", 12, Fields().u32(0x1000))},
        {"faults/23-large-sample.mp4", patched(sound, "stsz", 16, Fields().u32(0x1000000))},
        {"faults/24-late-chapter.mp4",
         changed([](Movie& m) { m.extraInMovie = fullBox("chpl", Fields().u8(1).u64(1000000).u8(0)); })},
        {"faults/26-other-format.mp4", std::string("ZMV\1\5\0\0\0\x09\0\0\0\0", 13)},
        {"faults/27-scheme.mp4", patched(buildMovie(locked).bytes, "schm", 8, "cenc")},
        {"faults/28-table.mp4", patched(sound, "stts", 8, Fields().u32(0x10000000))},
        {"faults/29-fragment.mp4", sound + box("moof", fullBox("mfhd", Fields().u32(1)))},
        {"faults/30-order.mp4", patched(buildMovie(fragmented).bytes, "mfhd", 8, Fields().u32(7))},
        {"faults/31-hierarchy.mp4", ftyp() + box("moov", mdhd(1, 1))},
        {"faults/102-unknown-box.mp4", box("wide") + sound},
        {"faults/103-incomplete.mp4", patched(sound, "stco", 0, "free")},
        {"faults/104-two-videos.mp4",
         changed([](Movie& m) { m.tracks.push_back(avcTrack(3)), m.tracks[2].id = 3; })},
        {"faults/105-two-sounds.mp4",
         changed([](Movie& m) { m.tracks.push_back(aacTrack(3)), m.tracks[2].id = 3; })},
        {"faults/107-unsupported.mp4", changed([&](Movie& m) { m.tracks[1].entries = {unsupported}; })},
        {"faults/108-profile.mp4", changed([](Movie& m) { m.tracks[0].entries = {avcEntry(88)}; })},
        {"faults/109-object-type.mp4",
         changed([](Movie& m) { m.tracks[1].entries = {aacEntry("\x1A\x10")}; })},
        {"faults/111-layout.mp4",
         changed([](Movie& m) { m.extraInMovie = box("udta", box("meta", fullBox("hdlr") + box("keys"))); })},
        {"faults/112-four-bytes.mp4",
         changed([](Movie& m) { m.extraInMovie = box("udta", Fields().u32(0)); })},
        {"faults/117-empty.mp4", ""},
        {"faults/117-cut-media.mp4", sound.substr(0, sound.size() - 20)},
        {"faults/118-edits.mp4", changed([](Movie& m) {
             m.tracks[0].edits = {{10, 0}, {10, 0}};
         })},
        {"faults/121-no-such-track.mp4",
         changed([](Movie& m) { m.extraInMovie = box("mvex", fullBox("trex", Fields().zeros(20))); })},
        {"faults/122-early-flags.mp4", buildMovie(earlyFlags).bytes},
        {"faults/123-unknown-version.mp4",
         changed([](Movie& m) { m.extraInMovie = fullBox("chpl", "", 7); })},
        {"faults/124-no-sync.mp4", changed([](Movie& m) { m.tracks[0].syncTable = false; })},
        {"faults/125-duration.mp4", patched(sound, "stts", 16, Fields().u32(0xFFFFFFFF))},
    };
}

}  // namespace krx::test
