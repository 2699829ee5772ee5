// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/videovalidationparameters.h"
#include "tools/zmvutil/vidlint/src/checkenvironment.h"
#include "vidlint/inputreport.h"

#include <functional>
#include <memory>

class SRString;
class VideoFile;

/// The kind of the input at the path: by its extension, or a recording when it names a directory. Throws
/// StreamParseError kInvalidPath.
vidlint::InputKind kindOfInput(const SRString& path, const CheckEnvironment& environment);

/// The input object for a path of that kind. Throws StreamParseError.
std::shared_ptr<VideoFile> getVideoFile(vidlint::InputKind kind, const SRString& path,
                                        krx::streams::VideoValidationParameters parameters,
                                        const CheckEnvironment& environment);

/// How the steps of an input ended.
enum class InputEnd
{
    kPassed,
    kRefused,  ///< by a finding
    kOutOfMemory,
    kCancelled,
};

/// Runs the steps of an input. An exception from them ends this input only: it becomes a finding, but for
/// standard exceptions, whose source has given the reasons or has no memory to give them. Throws nothing.
InputEnd runInput(CheckSink& sink, const std::function<void()>& steps);
