// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxheader.h"

namespace krx::mp4 {

SRString fourCCName(unsigned code)
{
    wchar_t name[4];
    for (int i = 0; i < 4; ++i) {
        const unsigned byte = code >> (24 - 8 * i) & 0xFF;
        name[i] = byte != 0 ? static_cast<wchar_t>(byte) : L'.';
    }
    return SRString(name, 4);
}

}  // namespace krx::mp4
