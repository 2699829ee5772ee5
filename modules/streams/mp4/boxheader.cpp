// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "modules/streams/mp4/boxheader.h"

namespace krx::mp4 {

SRString BoxHeader::getBoxName() const
{
    wchar_t name[4];
    for (int i = 0; i < 4; ++i)
        name[i] = static_cast<wchar_t>(type >> (24 - 8 * i) & 0xFF);
    return SRString(name, 4);
}

}  // namespace krx::mp4
