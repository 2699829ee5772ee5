// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "vidlint/inputreport.h"

#include <span>

/// What the check knows besides the report.
struct CauseFacts
{
    bool outOfMemory = false;
    int systemError = 0;  ///< errno of the call that failed; 0 for none
    std::span<const unsigned char> firstBytes;
};

/// Settles cause, other format and unreadable in a report that is complete otherwise. A cause that is cut
/// short already stays so unless there is a stronger one.
void settleCause(vidlint::InputReport& report, const CauseFacts& facts);
