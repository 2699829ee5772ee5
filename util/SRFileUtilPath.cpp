// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRFileUtil.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace krx::util {

namespace {

using Components = std::vector<std::wstring_view>;

bool isAbsolute(std::wstring_view path)
{
    return !path.empty() && path.front() == L'/';
}

/// The components of a path without empty ones and ".".
template <typename IsSeparator>
Components componentsOf(std::wstring_view path, IsSeparator isSeparator)
{
    Components components;
    while (!path.empty()) {
        const auto end = std::find_if(path.begin(), path.end(), isSeparator);
        const auto length = static_cast<std::size_t>(end - path.begin());
        const std::wstring_view component = path.substr(0, length);
        if (!component.empty() && component != L".")
            components.push_back(component);
        path.remove_prefix(std::min(path.size(), length + 1));
    }
    return components;
}

Components componentsOf(std::wstring_view path)
{
    return componentsOf(path, [](wchar_t c) { return c == L'/'; });
}

/// Resolves "..". With no component left, an absolute path stays at the root and a relative one keeps it.
Components resolveDots(const Components& components, bool absolute)
{
    Components resolved;
    for (const std::wstring_view component : components) {
        const bool up = component == L"..";
        if (up && !resolved.empty() && resolved.back() != L"..")
            resolved.pop_back();
        else if (!up || !absolute)
            resolved.push_back(component);
    }
    return resolved;
}

SRString join(const Components& components, bool absolute)
{
    std::wstring path(absolute ? L"/" : L"");
    for (const std::wstring_view component : components) {
        if (!path.empty() && path.back() != L'/')
            path += L'/';
        path += component;
    }
    return SRString(path.empty() ? std::wstring_view(L".") : std::wstring_view(path));
}

SRString normalised(const SRString& path)
{
    const bool absolute = isAbsolute(path.view());
    return join(resolveDots(componentsOf(path.view()), absolute), absolute);
}

/// Settings of the process, which outlive every static object that may still ask for them.
struct ProcessDirs
{
    std::mutex mutex;
    SRString tmp;
    SRString program;
};

ProcessDirs& processDirs()
{
    static auto* const dirs = new ProcessDirs;
    return *dirs;
}

SRString getGuarded(SRString ProcessDirs::*dir)
{
    const std::lock_guard lock(processDirs().mutex);
    return processDirs().*dir;
}

void setGuarded(SRString ProcessDirs::*dir, const SRString& path)
{
    const std::lock_guard lock(processDirs().mutex);
    processDirs().*dir = path;
}

}  // namespace

void SRFileUtil::splitPath(const SRString& path, SRString& dir, SRString& name)
{
    const std::wstring whole(path.view());
    const std::wstring_view view(whole);
    const std::size_t separator = view.find_last_of(L"/\\");
    if (separator == std::wstring_view::npos) {
        dir.clear();
        name = SRString(view);
        return;
    }
    dir = SRString(view.substr(0, std::max<std::size_t>(separator, 1)));
    name = SRString(view.substr(separator + 1));
}

SRString SRFileUtil::getParentDir(const SRString& path)
{
    std::wstring_view view = path.view();
    const auto cutSeparators = [&view] {
        while (view.size() > 1 && isDirSep(view.back()))
            view.remove_suffix(1);
    };
    cutSeparators();
    const std::size_t separator = view.find_last_of(L"/\\");
    if (separator == std::wstring_view::npos || view.size() == 1)
        return SRString();
    view = view.substr(0, separator + 1);
    cutSeparators();
    return SRString(view);
}

bool SRFileUtil::fullpath(SRString& out, const SRString& path)
{
    if (isAbsolutePath(path)) {
        out = normalised(path);
        return true;
    }
    const SRString current = getCurDir();
    if (current.empty())
        return false;
    out = resolvePath(current, path);
    return true;
}

SRString SRFileUtil::resolvePath(const SRString& base, const SRString& relative)
{
    return isAbsolutePath(relative) ? normalised(relative) : normalised(base + L"/" + relative);
}

SRString SRFileUtil::absoluteToRelativePath(const SRString& base, const SRString& path)
{
    if (!isAbsolutePath(base) || !isAbsolutePath(path))
        return path;
    const Components from = resolveDots(componentsOf(base.view()), true);
    const Components to = resolveDots(componentsOf(path.view()), true);
    const auto [fromRest, toRest] = std::mismatch(from.begin(), from.end(), to.begin(), to.end());
    Components relative(static_cast<std::size_t>(from.end() - fromRest), L"..");
    relative.insert(relative.end(), toRest, to.end());
    return join(relative, false);
}

SRString SRFileUtil::fixPathName(const SRString& path)
{
    if (path.empty())
        return path;
    const bool absolute = isAbsolute(path.view());
    const Components components = componentsOf(path.view());
    const SRString fixed = join(components, absolute);
    // A separator at the end says that a directory is meant.
    return !components.empty() && path.view().back() == L'/' ? fixed + L"/" : fixed;
}

SRString SRFileUtil::makeFileNameFriendly(const SRString& name)
{
    std::wstring friendly(name.view());
    const bool onlyDots = friendly.find_first_not_of(L'.') == std::wstring::npos;
    for (wchar_t& c : friendly) {
        if (c < L' ' || c == 0x7F || std::wstring_view(L"/\\:*?\"<>|").find(c) != std::wstring_view::npos ||
            (onlyDots && c == L'.'))
            c = L'_';
    }
    return SRString(friendly.empty() ? std::wstring_view(L"_") : std::wstring_view(friendly));
}

SRString SRFileUtil::nameToNative(const SRString& path)
{
    std::wstring native(path.view());
    std::replace(native.begin(), native.end(), L'\\', L'/');
    return SRString(std::wstring_view(native));
}

bool SRFileUtil::isAbsolutePath(const SRString& path)
{
    return isAbsolute(path.view());
}

bool SRFileUtil::isPathAllowed(const SRString& path)
{
    const std::wstring_view view = path.view();
    // A zero character would end the path early for the system.
    if (view.empty() || isDirSep(view.front()) || view.find(L'\0') != std::wstring_view::npos)
        return false;
    std::size_t depth = 0;
    for (const std::wstring_view component : componentsOf(view, isDirSep)) {
        if (component != L"..")
            ++depth;
        else if (depth-- == 0)
            return false;
    }
    return true;
}

SRString SRFileUtil::getCurDir()
{
    const std::unique_ptr<char, void (*)(void*)> current(::getcwd(nullptr, 0), std::free);
    return current ? SRString::fromMultiByte(current.get()) : SRString();
}

SRString SRFileUtil::getTmpDir()
{
    SRString configured = getGuarded(&ProcessDirs::tmp);
    if (!configured.empty())
        return configured;
    const char* environment = std::getenv("TMPDIR");
    return SRString::fromMultiByte(environment && *environment ? environment : "/tmp");
}

void SRFileUtil::setTmpDir(const SRString& path)
{
    setGuarded(&ProcessDirs::tmp, path);
}

SRString SRFileUtil::getProgramDir()
{
    return getGuarded(&ProcessDirs::program);
}

void SRFileUtil::setProgramDir(const SRString& path)
{
    setGuarded(&ProcessDirs::program, path);
}

}  // namespace krx::util
