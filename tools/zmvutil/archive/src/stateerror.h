// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <stdexcept>

namespace archive {

/// A state file cannot be used: locked, damaged, of another version, read-only, or the disk is full. The text
/// is the path as it was given, in bytes, a colon, and a clause for people.
class StateError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

}  // namespace archive
