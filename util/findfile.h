// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"

#include <memory>

namespace krx::util {

/// One entry of a directory listing.
struct FindData
{
    static constexpr unsigned kAttributeDirectory = 16;

    SRString name;            ///< without its directory
    unsigned attributes = 0;  ///< kAttributeDirectory for a directory and a link to one, else 0
};

struct FindState;
struct FindStateDeleter
{
    void operator()(FindState* state) const noexcept;
};
/// A listing under way; null stands for none.
using FindHandle = std::unique_ptr<FindState, FindStateDeleter>;

/// Starts listing the entries of a directory whose names match the last component of pattern: '*' stands for
/// any bytes, '?' for one byte, every other character for itself; an empty last component matches every name.
/// The entries "." and ".." are listed like any other. Names are matched as bytes, whatever the locale.
///
/// data receives the first match, with an empty name when nothing matches. Null when the directory cannot be
/// opened or memory runs out; errno then has the reason.
FindHandle FindFirstFile(const SRString& pattern, FindData& data);

/// The next match; false, with an empty name, when there is none. Without memory for the name it throws
/// SROutOfMemory or std::bad_alloc.
bool FindNextFile(const FindHandle& handle, FindData& data);

/// Ends the listing, as destroying the handle does; false when there is none.
bool FindClose(FindHandle& handle);

}  // namespace krx::util
