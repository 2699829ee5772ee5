// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::streams {

/// Level of a report line and of the report's verbosity: a line is written when its level is not above the
/// input's. 4 has no form.
enum LogLevel_t : int
{
    LOG_ALERT = 1,
    LOG_ERROR = 2,
    LOG_WARNING = 3,
    LOG_INFO = 5,
};

/// What the command line settles for every input.
struct VideoValidationParameters
{
    LogLevel_t logLevel = LOG_ERROR;
    bool warningsAsErrors = false;
    bool fixMetaData = false;
    bool fixVideoStall = false;
    unsigned durationMargin = 2;  ///< seconds
};

}  // namespace krx::streams
