// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/rotationaldisks.h"

#include <fstream>
#include <sys/sysmacros.h>

namespace archive {

bool RotationalDisks::isRotational(dev_t device)
{
    const auto [place, isNew] = m_known.try_emplace(device, false);
    if (isNew)
        place->second = ask(device);
    return place->second;
}

bool RotationalDisks::ask(dev_t device) const
{
    const std::string folder =
        m_folder + '/' + std::to_string(major(device)) + ':' + std::to_string(minor(device));
    // That of a partition is a link into the folder of its disk, which has the queue.
    for (const char* const queue : {"/queue/rotational", "/../queue/rotational"}) {
        std::ifstream file(folder + queue);
        char digit = 0;
        if (file.get(digit))
            return digit == '1';
    }
    return false;
}

}  // namespace archive
