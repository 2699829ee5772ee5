// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace krx::test {

/// A new directory for one test, removed with its content at the end.
class TempDir
{
public:
    TempDir() : m_path((std::filesystem::temp_directory_path() / "vidlint-test-XXXXXX").string())
    {
        if (!::mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary directory");
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of an entry, as bytes and as the library takes it.
    std::string bytes(std::string_view name) const { return m_path + '/' + std::string(name); }
    SRString file(std::string_view name) const { return SRString::fromMultiByte(bytes(name)); }

    SRString write(std::string_view name, std::string_view content) const
    {
        std::ofstream(bytes(name), std::ios::binary | std::ios::trunc) << content;
        return file(name);
    }
    SRString makeDir(std::string_view name) const
    {
        std::filesystem::create_directories(bytes(name));
        return file(name);
    }
    /// The content of a file; empty when it cannot be read.
    std::string read(std::string_view name) const
    {
        std::ifstream in(bytes(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

private:
    std::string m_path;
};

}  // namespace krx::test
