// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

class SRString;
class VideoFile;

/// What one run of the program is to do: the parameters, and the paths as they stand on the command line.
struct VideoValidationJob
{
    krx::streams::VideoValidationParameters parameters;
    std::vector<std::string> files;

    /// Validates every file in order, whatever becomes of the others. Returns the number of invalid ones.
    int validateAllFiles();
    /// True when the input passed. A finding that ends it has been reported.
    bool validateFile(const SRString& path);
    /// The input object for a path: by its extension, or a recorded stream when it names a directory. Throws
    /// StreamParseError.
    std::shared_ptr<VideoFile> getVideoFile(const SRString& path);
};

/// Runs the steps of the input at the path. An exception from them ends this input only: returns false, after
/// a finding or an exception of the foundation got its line in the report. Throws nothing.
bool runInput(const SRString& path, const std::function<void()>& steps);
