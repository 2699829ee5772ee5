// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

struct VideoValidationJob;

/// Fills the job from the command line and writes the banner, help, usage example or option error that it
/// asks for. True when validation is to run; false ends the process with status -1. Throws nothing.
bool processCmdLineArgs(int argc, char** argv, VideoValidationJob& job);
