// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"

#include <new>
#include <utility>

/// Root of the library's exceptions. None of them derives from std::exception, so a handler for standard
/// exceptions never catches them.
class SRThrowable
{
public:
    virtual ~SRThrowable() = default;

protected:
    SRThrowable() = default;
    SRThrowable(const SRThrowable&) = default;
    SRThrowable& operator=(const SRThrowable&) = default;
};

class SRException : public SRThrowable
{
public:
    SRException() = default;
    explicit SRException(SRString message) : m_message(std::move(message)) {}

    const SRString& getMessage() const { return m_message; }

protected:
    SRString m_message;
};

/// The peer or the data can no longer be trusted; code is the reason.
class SRBreakConnection : public SRException
{
public:
    static constexpr int kMalformedData = 1029;

    explicit SRBreakConnection(int code) : m_code(code) {}
    int getCode() const { return m_code; }

private:
    int m_code;
};

class SROutOfMemory : public SRException
{
public:
    using SRException::SRException;
};

namespace krx::util {

/// Returns call(), or otherwise() when call runs out of memory: with SROutOfMemory from the library or
/// std::bad_alloc from the standard library. Other exceptions pass.
template <typename Call, typename Otherwise>
auto unlessOutOfMemory(Call call, Otherwise otherwise) -> decltype(call())
{
    try {
        return call();
    } catch (const SROutOfMemory&) {
    } catch (const std::bad_alloc&) {
    }
    return otherwise();
}

/// Whoever asked for the work asked for its end. It says nothing about the data.
class Cancelled : public SRException
{
public:
    using SRException::SRException;
};

/// A file could not be loaded, read or saved.
class FileReadException : public SRException
{
public:
    using SRException::SRException;
    /// offset: of the bytes that could not be read or are faulty, from the start of the file.
    FileReadException(SRString message, long long offset) : SRException(std::move(message)), m_offset(offset)
    {
    }

    /// Negative when it is not known.
    long long offset() const { return m_offset; }

private:
    long long m_offset = -1;
};

}  // namespace krx::util
