// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

namespace krx::raw {

/// The settings of the recorded-stream reader, by the names of their keys.
struct RawConfigStruct
{
    bool EnableAggMsgs = true;  ///< "Raw/EnableAggMsgs": deliver runs of messages as aggregates
    /// "Raw/MaxAggMsgSize": an aggregate of this many bytes is delivered, or sooner if it would outgrow a
    /// message.
    unsigned MaxAggMsgSize = 65536;
    bool WarningsAsErrors = false;  ///< "Raw/WarningsAsErrors"
    unsigned MaxEraseRetries = 2;   ///< "Raw/MaxEraseRetries": of the recording side
};

}  // namespace krx::raw
