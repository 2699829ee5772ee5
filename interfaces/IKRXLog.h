// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

class SRString;

/// Receives the log lines of the server's services.
class IKRXLog
{
public:
    enum Level
    {
        kWarning = 2,
        kFailure = 3,
    };

    virtual ~IKRXLog() = default;
    /// One line without a line end. May be called from any thread.
    virtual void log(Level level, const SRString& text) = 0;
};
