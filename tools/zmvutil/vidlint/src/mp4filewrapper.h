// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/vidlint/src/videofile.h"

/// An MP4 file as an input of a job. There is nothing to repair in it.
class MP4FileWrapper : public VideoFile
{
public:
    using VideoFile::VideoFile;

    void parse() override;
    void applyFixes() override;
};
