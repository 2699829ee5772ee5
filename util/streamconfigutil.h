// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

class IQVStreamContext;

namespace krx::util {

/// Reads the settings of a stream module from its context.
class StreamConfig
{
public:
    StreamConfig() = delete;

    /// Asks for the text of a setting. *buffer is an array (new[]) of size bytes; where the text needs more,
    /// it is replaced by a larger, zeroed one and size follows. The text ends at the first zero byte or at
    /// size. False when the key is not configured or cannot be read.
    static bool readConfig(IQVStreamContext* context, const char* key, char** buffer, unsigned& size);

    /// A decimal number; a negative one counts as 0. value changes only when the number lies within [min,
    /// max]. Returns whether the key is configured.
    static bool readConfigUnsigned(IQVStreamContext* context, const char* key, unsigned& value, unsigned min,
                                   unsigned max);

    /// value changes only on the exact texts "true" and "false". Returns whether the key is configured.
    static bool readConfigBool(IQVStreamContext* context, const char* key, bool& value);
};

}  // namespace krx::util
