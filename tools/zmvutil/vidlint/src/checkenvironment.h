// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <atomic>
#include <map>
#include <string>

class CheckSink;
class IKrxFileIo;

namespace krx::util {
class MemoryQuota;
}

/// What an input object is given by the check that it is part of. Nothing of it is owned; all of it outlives
/// the object, and is used by one check at a time unless it says otherwise.
struct CheckEnvironment
{
    CheckSink& sink;
    IKrxFileIo& io;
    const std::map<std::string, std::string>* serverSettings = nullptr;  ///< by key; null for none
    krx::util::MemoryQuota* quota = nullptr;                             ///< null for no bound
    const std::atomic<bool>* cancel = nullptr;                           ///< null for never
};
