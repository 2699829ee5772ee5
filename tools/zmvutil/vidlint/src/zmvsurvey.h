// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/vidlint/src/messagetally.h"
#include "util/SRFileUtil.h"

class ZmvReader;

namespace krx::util {
class FileHoles;
}

/// What a ZMV file holds as far as its messages follow each other, whatever the checks say.
struct ZmvSurvey
{
    StreamTally tally;
    /// The messages go on beyond the end of the file or into a hole of it.
    bool isCutShort = false;
};

/// Counts the messages from the start of the body on, up to the first that is not sound or not all there; of
/// a file without the signature none. Reads the headers and back-pointers only. Throws kFileReadError.
ZmvSurvey surveyZmv(ZmvReader& file, krx::util::FileHoles& holes);
