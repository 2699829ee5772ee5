// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "vidlint/inputreport.h"

#include <cstddef>

namespace vidlint {
namespace {

template <std::size_t N, typename Value>
const char* lookUp(const char* const (&names)[N], Value value)
{
    const auto i = static_cast<std::size_t>(value);
    return i < N ? names[i] : "";
}

}  // namespace

const char* nameOf(InputKind kind)
{
    static constexpr const char* kNames[] = {"zmv", "mp4", "recording"};
    return lookUp(kNames, kind);
}

const char* nameOf(Verdict verdict)
{
    static constexpr const char* kNames[] = {"invalid", "valid"};
    return lookUp(kNames, verdict);
}

const char* nameOf(Cause cause)
{
    static constexpr const char* kNames[] = {"none",    "cut-short",   "other-format", "empty",
                                             "damaged", "unsupported", "unreadable",   "resources"};
    return lookUp(kNames, cause);
}

const char* nameOf(TrackKind kind)
{
    static constexpr const char* kNames[] = {"other", "video", "audio", "text", "data"};
    return lookUp(kNames, kind);
}

const char* nameOf(FindingLevel level)
{
    static constexpr const char* kNames[] = {"information", "warning", "error"};
    return lookUp(kNames, level);
}

}  // namespace vidlint
