// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "modules/streams/finding.h"

#include <cstddef>
#include <string_view>

class SRDataArray;

/// What a check tells while it runs. Findings come as data. The rest is the listing of a verbose report; a
/// check asks whether it is wanted before it makes any of it.
class CheckSink : public krx::streams::FindingSink
{
public:
    /// Whether facts of the input are wanted besides the fixed report: its tracks, and the warnings of the
    /// MP4 reader.
    virtual bool wantsFacts() const { return false; }

    virtual bool wantsListing() const { return false; }
    /// Text of the listing as it stands.
    virtual void note(std::string_view /*text*/) {}
    /// One message of the listing. timestamp in ms, length in bytes.
    virtual void noteMessage(long long /*position*/, unsigned /*timestamp*/, unsigned /*length*/,
                             std::string_view /*typeName*/)
    {
    }
    /// The names and values of an array; null is an empty array. Text of the values above maxBytes is of no
    /// use.
    virtual void noteValues(const SRDataArray* /*array*/, std::size_t /*maxBytes*/) {}

protected:
    ~CheckSink() = default;
};
