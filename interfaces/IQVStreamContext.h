// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

class IKrxFileIo;

/// What a stream module may ask of its user. It must outlive the module and its streams, and is called on the
/// threads that use them.
class IQVStreamContext
{
public:
    virtual ~IQVStreamContext() = default;
    virtual unsigned getVersion() const = 0;
    /// Copies the setting's text to *value, which has room for size bytes, without a terminating zero.
    /// Returns 0 on success, the size needed when size is too small, -1 when the key is not configured.
    virtual int getConfig(const char* key, char** value, int size) = 0;
    /// Hands over a finding. level is a LogLevel_t.
    virtual void log(const char* text, unsigned short level, bool flag) = 0;
    /// The file access that the module is to use; owned by the context.
    virtual IKrxFileIo* getFileIo() = 0;
};

/// Properties that come with one open request.
class IQVStreamOpenContext
{
public:
    virtual ~IQVStreamOpenContext() = default;
    /// Copies the property's text to out (room for size bytes). Negative when there is no such property.
    virtual int getProperty(const char* section, const char* name, char* out, int size) = 0;
};
