// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/largemp4.h"
#include "bench/largeraw.h"
#include "bench/largezmv.h"

#include <exception>
#include <iostream>
#include <string>

namespace {

constexpr const char* kUsage =
    "Usage: make_large zmv FILE BYTES [MIN MAX]      a ZMV file of that size; lengths of messages (200 "
    "40960)\n"
    "       make_large zmv-messages FILE COUNT LENGTH  a ZMV file of that many messages of one length\n"
    "       make_large mp4 FILE NAME                 hour, lowrate, clip, samples, tracks, "
    "fragments or pages\n"
    "       make_large raw DIR SEGMENTS BYTES [MIN MAX]  a recording of that size; lengths of messages (200 "
    "40960)\n"
    "       make_large raw-index DIR SEGMENTS        the index of such a recording, without segment files\n";

std::uint32_t lengthArg(const char* text)
{
    return static_cast<std::uint32_t>(std::stoul(text));
}

}  // namespace

/// Writes a large sound input for benchmarks.
int main(int argc, char** argv)
{
    using namespace krx::bench;
    try {
        const std::string kind = argc > 1 ? argv[1] : "";
        LargeZmv zmv;
        if (kind == "zmv" && (argc == 4 || argc == 6)) {
            zmv.targetBytes = std::stoull(argv[3]);
            if (argc == 6) {
                zmv.minLength = lengthArg(argv[4]);
                zmv.maxLength = lengthArg(argv[5]);
            }
        } else if (kind == "zmv-messages" && argc == 5) {
            zmv.targetMessages = std::stoull(argv[3]);
            zmv.minLength = zmv.maxLength = lengthArg(argv[4]);
        } else if (kind == "mp4" && argc == 4) {
            const LargeMp4Facts facts = writeLargeMp4(argv[2], largeMp4(argv[3]));
            std::cout << facts.bytes << " bytes, " << facts.tableBytes << " of tables, " << facts.samples
                      << " samples\n";
            return 0;
        } else if ((kind == "raw" && (argc == 5 || argc == 7)) || (kind == "raw-index" && argc == 4)) {
            LargeRaw raw;
            raw.segments = std::stoull(argv[3]);
            if (argc > 4)
                raw.targetBytes = std::stoull(argv[4]);
            if (argc == 7) {
                raw.minLength = lengthArg(argv[5]);
                raw.maxLength = lengthArg(argv[6]);
            }
            const LargeRawFacts facts = writeLargeRaw(argv[2], raw);
            std::cout << facts.bytes << " bytes, " << facts.messages << " messages\n";
            return 0;
        } else {
            std::cerr << kUsage;
            return 2;
        }
        const LargeZmvFacts facts = writeLargeZmv(argv[2], zmv);
        std::cout << facts.bytes << " bytes, " << facts.messages << " messages\n";
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "make_large: " << error.what() << '\n';
        return 1;
    }
}
