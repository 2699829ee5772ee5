// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tests/support/rawbuilder.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

using namespace krx::test;

/// The input of fuzz_raw for a recording of up to two segments.
std::string seedOf(const RawBuilder& builder, std::uint8_t mode = 0xFE)
{
    const std::string index = builder.index();
    const std::string contexts = builder.contextsFile();
    std::string segments;
    std::size_t first = 0;
    for (const auto& [name, content] : builder.segments) {
        segments += content;
        if (first == 0)
            first = content.size();
    }
    std::string seed;
    putBigEndian(seed, mode, 1);
    putBigEndian(seed, index.size(), 2);
    putBigEndian(seed, contexts.size(), 2);
    putBigEndian(seed, first, 2);
    return seed + index + contexts + segments;
}

RawBuilder withContexts()
{
    RawBuilder builder = smallRecording();
    builder.context({9, 1, "header", 0, 1, 1})
        .context({8, 60, "ender", 5, 1, 2})
        .context({18, 3, "", -1, 2, 1});
    return builder;
}

RawBuilder withoutOrder()
{
    RawBuilder builder;
    return builder.segment({rawAudio(40), rawAudio(20), rawVideo(30, "\x05"), rawAudio(0), rawAudio(41)});
}

RawBuilder withWrongFooter()
{
    RawMessage wrong = rawAudio(60);
    wrong.footer = 4;
    RawBuilder builder;
    return builder.segment({rawAudio(5)}).segment({rawAudio(40), wrong});
}

RawBuilder withGap()
{
    RawBuilder builder = smallRecording();
    ++builder.bounds.back().start;
    return builder;
}

}  // namespace

/// Writes the seeds of fuzz_raw to a directory that exists.
int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "Usage: make_raw_seeds DIR\n";
        return 2;
    }
    const std::pair<const char*, std::string> seeds[] = {
        {"sound", seedOf(smallRecording())},
        {"small-aggregates", seedOf(smallRecording(), 2)},
        {"contexts", seedOf(withContexts())},
        {"out-of-order", seedOf(withoutOrder())},
        {"out-of-order-strict", seedOf(withoutOrder(), 0xFF)},
        {"wrong-footer", seedOf(withWrongFooter())},
        {"gap", seedOf(withGap())},
        {"no-segments", seedOf(RawBuilder())},
    };
    for (const auto& [name, content] : seeds)
        std::ofstream(std::string(argv[1]) + '/' + name, std::ios::binary | std::ios::trunc) << content;
    return 0;
}
