// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/mp4samples.h"

#include "tests/support/hextext.h"
#include "tests/support/mp4builder.h"
#include "tests/support/samplemedia.h"

#include <span>

namespace krx::test {
namespace {

/// Six times the same sample, each 100 ms long.
MovieTrack plainTrack(std::uint32_t id, std::string_view handler, const std::string& entry,
                      const std::string& media)
{
    MovieTrack track;
    track.id = id;
    track.handler = handler;
    track.entries = {entry};
    track.samples.assign(6, {static_cast<std::uint32_t>(media.size()), 100, 0, true, 1, media});
    return track;
}

void setMedia(MovieTrack& track, std::span<const char* const> media)
{
    for (std::size_t i = 0; i < track.samples.size(); ++i) {
        track.samples[i].media = hexText(media[i]);
        track.samples[i].size = static_cast<std::uint32_t>(track.samples[i].media.size());
    }
}

std::string pictureEntry(std::string_view type, std::string_view extra)
{
    return videoEntry(type, extra, kPictureWidth, kPictureHeight);
}

/// At most twelve pictures.
MovieTrack pictureTrack(std::size_t samples = 12)
{
    MovieTrack track = avcTrack(samples);
    track.handler = "vide";
    track.width = kPictureWidth;
    track.height = kPictureHeight;
    track.entries = {pictureEntry("avc1", box("avcC", hexText(kAvcConfiguration)))};
    // From the first picture on, which is shown one picture later than decoded.
    track.edits[1].mediaTime = 1000;
    setMedia(track, kPictures);
    for (std::size_t i = 0; i < samples; ++i)
        track.samples[i].compositionOffset = kPictureDelays[i] * 1000;
    return track;
}

/// At most twelve sounds.
MovieTrack soundTrack(std::size_t samples = 12)
{
    MovieTrack track = aacTrack(samples);
    track.handler = "soun";
    setMedia(track, kSounds);
    return track;
}

Movie shortMovie()
{
    Movie movie;
    movie.tracks = {pictureTrack(), soundTrack()};
    return movie;
}

std::string text(std::string_view s)
{
    return std::string(s) + '\0';
}

/// The boxes of a protected entry, which was of the original type. Every sample is encrypted as a whole.
std::string protection(std::string_view original)
{
    const std::string key =
        fullBox("qkey", box("zol ", text("license") + text("policy") + text("edc") + text("dom")));
    const std::string params = fullBox("qprm", fullBox("qeib", text("AES-CBC") + '\x10') + key, 1);
    const std::string header =
        fullBox("qhdr", fullBox("qdkm", params) + box("qsig", text("fmt") + text("sig")), 2, 0);
    return box("sinf", box("frma", original) + fullBox("schm", Fields().raw("qdkm").u32(1)) +
                           box("schi", header + fullBox("qdaf", std::string("\0\0\x10", 3))));
}

std::string data(std::uint32_t type, std::string_view payload)
{
    return box("data", Fields().u32(type).u32(0).raw(payload));
}

std::string userData()
{
    const std::string items = box("\xA9nam", data(1, "A name")) +
                              box("trkn", data(0, Fields().u16(0).u16(3).u32(0))) +
                              box("covr", data(13, hexText(kJpeg)) + data(14, hexText(kPng))) +
                              box("tmpo", data(21, std::string_view("\0\x78", 2)));
    const std::string chapters =
        fullBox("chpl", Fields().u8(2).u64(0).u8(5).raw("Start").u64(200).u8(3).raw("End"));
    const std::string xmp =
        box("uuid", Fields().u64(0xBE7ACFCB97A942E8ULL).u64(0x9C71999491E3AFACULL).raw("<x:xmpmeta/>"));
    return box("udta", fullBox("meta", hdlr("mdir") + box("ilst", items)) + chapters +
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

/// A key frame of colours and one of alpha: each has its header, with the quantizer 32, the simple profile,
/// the place of the coefficients and the size in blocks of 16 pixels, and codes that are 0.
std::string alphaPicture()
{
    constexpr unsigned kRows = kPictureHeight / 16;
    constexpr unsigned kColumns = kPictureWidth / 16;
    Fields layer;
    layer.u8(0x40).u8(0x30).u16(16).u8(kRows).u8(kColumns).u8(kRows).u8(kColumns).zeros(16);
    return Fields().u24(layer.bytes().size()).raw(layer).raw(layer).bytes();
}

Movie movieOfKinds()
{
    const std::string note = Fields().u8(2).u16(6).raw("onNote").u8(2).u16(4).raw("Note").bytes();
    Movie movie;
    movie.tracks = {plainTrack(1, "vide", pictureEntry("VP6A", {}), alphaPicture()),
                    plainTrack(2, "soun", audioEntry("nmos", {}, 8000, 1), hexText(kSpeech)),
                    plainTrack(3, "sbtl", timedTextEntry(), Fields().u16(4).raw("Text").bytes()),
                    plainTrack(4, "data", box("amf0", Fields().zeros(6).u16(1)), note),
                    plainTrack(5, "vide", videoEntry("png ", {}, 8, 8), hexText(kPng))};
    for (MovieSample& block : movie.tracks[1].samples)
        block.duration = 32;
    return movie;
}

/// Nothing encrypts here: the media stays as it was before.
Movie protectedPictures()
{
    const std::string configuration = box("avcC", hexText(kAvcConfiguration));
    Movie movie;
    movie.tracks = {plainTrack(1, "vide", pictureEntry("encv", configuration + protection("avc1")),
                               hexText(kPictures[0]))};
    movie.tracks[0].syncTable = true;
    return movie;
}

Movie protectedSounds()
{
    Movie movie;
    movie.tracks = {soundTrack(6)};
    movie.tracks[0].entries = {audioEntry("enca", esds("\x12\x10") + protection("mp4a"))};
    return movie;
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

    const std::string sdtp = fullBox("sdtp", std::string(12, '\x10'));
    // The track does not list the samples of fragments.
    Movie earlyFlags = fragmented;
    earlyFlags.tracks[0].extraInTable = sdtp;
    const std::string unsupported =
        audioEntry("alac", fullBox("alac", hexText(kLosslessConfiguration)), 44100);
    Movie onlyUnsupported;
    onlyUnsupported.tracks = {plainTrack(1, "soun", unsupported, hexText(kLosslessSound))};
    // Only the fields of a track header that are read: 65 fit a small file.
    std::string tracks;
    for (std::uint32_t id = 1; id <= 65; ++id)
        tracks += box("trak", fullBox("tkhd", Fields().zeros(8).u32(id)));

    return {
        {"sound.mp4", sound},
        {"sound-end.mp4", changed([](Movie& m) { m.movieFirst = false; })},
        {"fragments.mp4", buildMovie(fragmented).bytes},
        {"wide.mp4", changed([](Movie& m) { m.tracks[0].wideOffsets = true; })},
        {"kinds.mp4", buildMovie(movieOfKinds()).bytes},
        {"metadata.mp4", changed([](Movie& m) { m.extraInMovie = userData(); })},
        {"encrypted-video.mp4", buildMovie(protectedPictures()).bytes},
        {"encrypted-audio.mp4", buildMovie(protectedSounds()).bytes},
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
        {"faults/27-scheme.mp4", patched(buildMovie(protectedPictures()).bytes, "schm", 8, "cenc")},
        {"faults/28-table.mp4", patched(sound, "stts", 8, Fields().u32(0x10000000))},
        {"faults/29-fragment.mp4", sound + box("moof", fullBox("mfhd", Fields().u32(1)))},
        {"faults/30-order.mp4", patched(buildMovie(fragmented).bytes, "mfhd", 8, Fields().u32(7))},
        {"faults/31-hierarchy.mp4", ftyp() + box("moov", mdhd(1, 1))},
        {"faults/102-unknown-box.mp4", sound + box("wide")},
        {"faults/103-incomplete.mp4", patched(sound, "stco", 0, "free")},
        {"faults/104-two-videos.mp4",
         changed([](Movie& m) { m.tracks.push_back(pictureTrack(3)), m.tracks[2].id = 3; })},
        {"faults/105-two-sounds.mp4",
         changed([](Movie& m) { m.tracks.push_back(soundTrack(3)), m.tracks[2].id = 3; })},
        {"faults/107-unsupported.mp4", changed([&](Movie& m) {
             m.tracks[1].entries = {unsupported};
             setMedia(m.tracks[1], std::vector(12, kLosslessSound));
         })},
        {"faults/108-profile.mp4", patched(sound, "avcC", 5, "\x58")},
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
