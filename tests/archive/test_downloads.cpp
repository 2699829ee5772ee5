// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// What downloads leave behind.

#include "tests/archive/childprocess.h"
#include "tests/support/mp4builder.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>

namespace krx::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// A film of two seconds, 2.7 MB: a hole needs whole blocks of the file system.
std::string film(bool movieFirst, unsigned samplesPerFragment = 0)
{
    Movie movie = soundMovie();
    for (MovieTrack& track : movie.tracks)
        for (MovieSample& sample : track.samples)
            sample.size = 20'000;
    movie.movieFirst = movieFirst;
    movie.samplesPerFragment = samplesPerFragment;
    return buildMovie(movie).bytes;
}

/// Writes the part of a file that has arrived; the rest is a hole when the file has its size already.
void writePart(const TempDir& dir, const std::string& name, const std::string& whole, std::size_t size,
               bool isPreallocated)
{
    dir.write(name, std::string_view(whole).substr(0, size));
    if (isPreallocated)
        fs::resize_file(dir.bytes(name), whole.size());
}

/// Some file systems have none.
bool hasHoles(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && status.st_blocks * 512 < status.st_size;
}

std::map<std::string, json> check(const TempDir& dir, int* status)
{
    std::istringstream text(
        outputOf({ARCHIVE_PROGRAM, "check", "--format=jsonl", "--min-age=0", dir.path()}, status));
    std::map<std::string, json> inputs;
    for (std::string line; std::getline(text, line);)
        if (const json record = json::parse(line); record.at("type") == "input")
            inputs[record.at("name")] = record;
    return inputs;
}

/// The cause, the other format, and the time until which it plays in tenths of a second, as far as known.
std::string told(const json& input)
{
    std::string text = input.at("cause");
    if (input.contains("other_format"))
        text += " " + input.at("other_format").get<std::string>();
    if (input.contains("plays_until_ms"))
        text += " " + std::to_string(input.at("plays_until_ms").get<long>() / 100);
    return text;
}

TEST(Downloads, AreToldFromWhatIsDamaged)
{
    const TempDir dir;
    const struct
    {
        const char* name;
        std::string whole;
    } forms[] = {{"front", film(true)}, {"end", film(false)}, {"fragments", film(true, 10)}};
    for (const auto& [name, whole] : forms) {
        dir.write(std::string(name) + ".mp4", whole);
        writePart(dir, std::string(name) + "-cut.mp4", whole, whole.size() / 2, false);
        writePart(dir, std::string(name) + "-holes.mp4", whole, whole.size() / 2, true);
    }
    // Parts that arrive in any order: the last one is there, with the movie box.
    const std::string& parts = forms[1].whole;
    writePart(dir, "parts-holes.mp4", parts, parts.size() / 2, true);
    std::fstream(dir.bytes("parts-holes.mp4"), std::ios::in | std::ios::out | std::ios::binary)
            .seekp(static_cast<std::streamoff>(parts.size() / 8 * 7))
        << parts.substr(parts.size() / 8 * 7);
    for (const char* const name : {"h264-baseline.mp4", "fragmented-dash.mp4", "quicktime.mov"}) {
        fs::copy(fs::path(ENCODED_DIR) / name, dir.bytes(name));
        fs::resize_file(dir.bytes(name), fs::file_size(dir.bytes(name)) / 2);
    }
    dir.write("page.mp4", "<!DOCTYPE html>\n<html><head><title>404 Not Found</title></head></html>\n");
    dir.write("film.mp4",
              std::string("\x1A\x45\xDF\xA3\x93\x42\x82\x88matroska", 16) + std::string(400, '\0'));
    dir.write("fork.mp4",
              std::string("\0\x05\x16\x07\0\x02\0\0Mac OS X        \0\x02", 26) + std::string(56, '\0'));

    std::map<std::string, std::string> expected = {
        {"front.mp4", "none 19"},
        {"front-cut.mp4", "cut-short 9"},
        {"front-holes.mp4", "cut-short 9"},
        {"end.mp4", "none 19"},
        {"end-cut.mp4", "cut-short"},
        {"end-holes.mp4", "cut-short"},
        {"fragments.mp4", "none 19"},
        {"fragments-cut.mp4", "cut-short 9"},
        {"fragments-holes.mp4", "cut-short 9"},
        {"parts-holes.mp4", "cut-short 9"},
        {"h264-baseline.mp4", "cut-short"},
        {"fragmented-dash.mp4", "cut-short 7"},
        {"quicktime.mov", "cut-short"},
        {"page.mp4", "other-format HTML"},
        {"film.mp4", "other-format Matroska"},
        {"fork.mp4", "other-format AppleDouble"},
    };
    if (!hasHoles(dir.bytes("front-holes.mp4")))
        std::erase_if(expected,
                      [](const auto& entry) { return entry.first.find("holes") != std::string::npos; });
    int status = 0;
    std::map<std::string, json> inputs = check(dir, &status);
    EXPECT_EQ(status, 1);
    for (const auto& [name, text] : expected)
        EXPECT_EQ(told(inputs[name]), text) << name;
}

}  // namespace
}  // namespace krx::test
