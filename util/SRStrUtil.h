// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"
#include "util/SRStringPool.h"
#include "util/comparenocase.h"

#include <cstddef>

/// String helpers that are no part of a string class.
class SRStrUtil
{
public:
    /// The pool; created on first use. Safe from any thread.
    static SRStringPool& poolInstance();
    static int collectGarbage();
    static void shutdown();

    /// Readable form of bytes for diagnostics: two hex digits per byte, separated by blanks; no more than the
    /// first maxBytes, then "...".
    static SRString formatBuffer(const unsigned char* bytes, std::size_t n, std::size_t maxBytes = 1024);

    /// Order of two texts ignoring the case of ASCII letters only, whatever the locale: negative, 0 or
    /// positive.
    static int compareNoCase(const char* a, const char* b) { return krx::util::compareNoCase(a, b); }
};
