// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/reachedpaths.h"

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

namespace archive {
namespace {

std::string resolved(const std::string& path)
{
    struct Freer
    {
        void operator()(char* text) const { std::free(text); }
    };
    const std::unique_ptr<char, Freer> real(::realpath(path.c_str(), nullptr));
    return real ? std::string(real.get()) : path;
}

bool isFolderAt(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string withoutSlashesAtEnd(std::string path)
{
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

ReachedPaths::ReachedPaths(const std::vector<std::string>& roots, bool hasList,
                           std::function<void(const std::string&)> warn)
    : m_warn(std::move(warn)), m_isNeeded(hasList || roots.size() > 1)
{
    if (hasList)
        m_seen.emplace();
    for (std::size_t i = 0; m_isNeeded && i < roots.size(); ++i)
        m_roots.try_emplace(realPathOf(roots[i], isFolderAt(roots[i])), i);
}

std::string ReachedPaths::realPathOf(const std::string& path, bool isFolder)
{
    if (!m_isNeeded)
        return path;
    const std::size_t slash = path.rfind('/');
    const std::string last = path.substr(slash == std::string::npos ? 0 : slash + 1);
    if (isFolder || last.empty() || last == "." || last == "..")
        return resolved(path);
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    if (folder != m_folder) {
        m_realFolder = resolved(folder);
        if (m_realFolder.back() != '/')
            m_realFolder += '/';
        m_folder = folder;
    }
    return m_realFolder + last;
}

bool ReachedPaths::reach(const std::string& realStart, std::string_view below, std::size_t root)
{
    if (!m_isNeeded)
        return true;
    std::string path = withoutSlashesAtEnd(realStart);
    if (path == "/" && !below.empty())
        path.clear();
    path += below;
    if (const auto place = m_roots.find(path); place != m_roots.end() && place->second != root)
        return false;
    if (!m_seen)
        return true;
    try {
        return m_seen->insert(path);
    } catch (const std::runtime_error& error) {
        m_warn(error.what());
        m_seen.reset();
        return true;
    }
}

}  // namespace archive
