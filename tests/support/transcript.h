// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/tempdir.h"

#include <map>
#include <string>

namespace krx::test {

/// What a terminal shows of real programs. In a transcript, lines that begin with "$ " go to the shell. The
/// lines up to the next one must be exactly what they print (both streams, time stamps shown as TIME, memory
/// sizes as N), then "[N]" when the status is not 0. The lines of a transcript run in order.
struct Transcript
{
    std::string path;                                ///< of the file, which ends in ".transcript"
    std::string programs;                            ///< folder that is searched first for programs
    std::map<std::string, std::string> variables{};  ///< more of the environment; it has LC_ALL=C
};

/// Runs the lines in the folder "work" of dir, which has to exist. With VIDLINT_UPDATE_TRANSCRIPTS set, the
/// output replaces what the file expects.
void expectTranscript(const Transcript& transcript, const TempDir& dir);

}  // namespace krx::test
