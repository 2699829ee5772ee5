// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/recordingsigns.h"

namespace archive {

unsigned RecordingSigns::signOf(std::string_view name)
{
    constexpr std::size_t kSegmentDigits = 16;
    if (name == "index")
        return 1;
    if (name == "contexts")
        return 2;
    const bool isSegment = name.size() == kSegmentDigits &&
                           name.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
    return isSegment ? 4 : 0;
}

}  // namespace archive
