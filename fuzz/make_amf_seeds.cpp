// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Writes the seeds of fuzz_amf to a folder: make_amf_seeds FOLDER

#include "tests/support/hextext.h"

#include <fstream>
#include <iostream>
#include <string>

namespace {

struct Seed
{
    const char* name;
    const char* bytes;  ///< mode, then the input
};

const Seed kSeeds[] = {
    {"amf0-plain",
     "00 00 4008000000000000 01 01 02 0003 'abc' 05 06 0D 22 000000012A05F200 0B 4097700000000000 0000"},
    {"amf0-texts", "00 0C 00000003 'abc' 0F 00000004 '<a/>' 04 0001 'm' 20 00000002 FF00"},
    {"amf0-object", "00 03 0001 'a' 05 0001 'o' 10 0003 'Cls' 0001 'b' 01 00 0000 09 0000 09"},
    {"amf0-arrays", "00 08 00000002 0001 'a' 0A 00000002 05 02 0001 'x' 0000 09"},
    {"amf0-reset", "01 03 0001 'a' 05 0000 09 07 0000 03 0000 09"},
    {"amf0-circle", "80 03 0001 'a' 07 0000 0001 'b' 08 00000000 0001 'c' 07 0000 0000 09 0000 09"},
    {"amf0-shared", "80 0A 00000003 03 0001 'a' 05 0000 09 07 0001 0A 00000002 07 0001 07 0002"},
    {"amf0-cut", "00 03 0001 'a' 02 0009 'short'"},
    {"amf0-unknown", "00 03 0001 'a' 0E"},
    {"skip", "02 03 0001 'a' 0A 00000002 05 11 0A 13 03 'C' 03 'm' 04 01 0000 09 0C 00000001 'x' 07 0000"},
    {"amf3-plain", "03 09 11 01 00 01 02 03 04 03 05 3FF8000000000000 06 05 'hi' 06 00"},
    {"amf3-array", "03 09 05 03 'x' 04 01 01 04 07 04 08"},
    {"amf3-objects",
     "03 09 07 01 0A 1B 03 'C' 03 'm' 04 01 03 'd' 04 02 01 0A 01 04 03 01 0A 13 01 00 04 04"},
    {"amf3-references",
     "03 09 15 01 08 01 3FF0000000000000 07 03 'x' 0C 03 FF 0A 0B 01 01 09 01 01 08 02 0B 04 0C 06 0A 08 09 "
     "0A"},
    {"amf3-vectors",
     "03 09 09 01 0D 05 01 FFFFFFFF 00000002 0E 03 00 FFFFFFFF 0F 03 00 3FF8000000000000 "
     "10 05 00 03 'C' 04 01 06 00"},
    {"amf3-dictionary", "03 11 05 01 06 03 'k' 04 01 0A 0B 01 01 11 00"},
    {"amf3-circle", "03 0A 0B 01 03 'a' 0A 00 03 'v' 10 03 00 01 0A 00 01"},
    {"amf3-bad-traits", "83 0A 83 23 01"},
    {"amf3-many-texts", "03 09 01 03 'a' 06 07 'abc' 02 01 02 01 02 06 02 01"},
    {"data",
     "04 02 000A 'onMetaData' 08 00000000 0008 'duration' 00 403E000000000000 000C 'canSeekToEnd' 01 01 0000 "
     "09"},
    {"data-strict", "84 02 000A 'onMetaData' 08 00000000 0008 'duration' 00 403E0000"},
    {"data-amf3", "05 02 0001 'm' 11 0A 0B 01 03 'a' 06 03 'b' 01"},
    {"command",
     "86 02 0007 'connect' 00 3FF0000000000000 05 03 0003 'app' 02 0004 'live' 0000 09 02 0001 'x'"},
    {"command-bad-id", "07 02 0004 'play' 0E"},
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: make_amf_seeds FOLDER\n";
        return 1;
    }
    for (const Seed& seed : kSeeds) {
        std::ofstream out(std::string(argv[1]) + "/" + seed.name, std::ios::binary | std::ios::trunc);
        out << krx::test::hexText(seed.bytes);
        if (!out.flush()) {
            std::cerr << "cannot write " << seed.name << "\n";
            return 1;
        }
    }
    return 0;
}
