// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "bench/tempinput.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace krx::bench {

TempInput::TempInput(const std::string& name) : m_name(name)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "vidlint-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw std::runtime_error("cannot create " + pattern);
    m_dir = pattern;
}

TempInput::~TempInput()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_dir, ignored);
}

}  // namespace krx::bench
