// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Runs vidlint as a user does. The folder of a transcript holds the samples and, in the folder "encoded",
// files of a general encoder.

#include "tests/support/transcript.h"
#include "tests/support/writesamples.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace krx::test {
namespace {

class Transcripts : public testing::TestWithParam<const char*>
{
};

TEST_P(Transcripts, PrintWhatIsExpected)
{
    const TempDir dir;
    writeSamples(dir.bytes("work"));
    std::filesystem::copy(ENCODED_DIR, dir.bytes("work/encoded"));
    expectTranscript({std::string(TRANSCRIPTS_DIR "/") + GetParam() + ".transcript", VIDLINT_DIR}, dir);
}

INSTANTIATE_TEST_SUITE_P(Cli, Transcripts,
                         testing::Values("options", "samples", "faults", "repair", "names", "streams",
                                         "recordings", "movies", "encoded"),
                         [](const auto& transcript) { return std::string(transcript.param); });

}  // namespace
}  // namespace krx::test
