// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/mp4filewrapper.h"

namespace krx::mp4 {

void MP4FileWrapper::parse()
{
    throw streams::StreamParseError(streams::kCannotOpenFile);
}

void MP4FileWrapper::applyFixes() {}

}  // namespace krx::mp4
