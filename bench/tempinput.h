// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <filesystem>
#include <string>

namespace krx::bench {

/// A path in a new directory of its own (under TMPDIR) that goes away with the object.
class TempInput
{
public:
    explicit TempInput(const std::string& name);
    ~TempInput();
    TempInput(const TempInput&) = delete;
    TempInput& operator=(const TempInput&) = delete;

    std::string path() const { return (m_dir / m_name).string(); }

private:
    std::filesystem::path m_dir;
    std::string m_name;
};

}  // namespace krx::bench
