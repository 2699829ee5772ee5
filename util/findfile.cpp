// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/findfile.h"

#include "util/SRException.h"
#include "util/SRFileUtil.h"
#include "util/bytelocale.h"

#include <cerrno>
#include <fcntl.h>
#include <regex.h>
#include <string>
#include <utility>

namespace krx::util {

namespace {

/// The basic regular expression for a name with wildcards, anchored at both ends.
std::string toExpression(const std::string& name)
{
    std::string expression(name.empty() ? "" : "^");
    for (const char c : name) {
        if (c == '*')
            expression += ".*";
        else if (c == '?')
            expression += '.';
        else if (std::string_view(".[\\^$").find(c) != std::string_view::npos)
            (expression += '\\') += c;
        else
            expression += c;
    }
    return expression + '$';
}

class NameExpression
{
public:
    explicit NameExpression(const std::string& name)
    {
        const ByteLocale bytes;
        m_compiled = ::regcomp(&m_regex, toExpression(name).c_str(), REG_NOSUB) == 0;
    }
    ~NameExpression()
    {
        if (m_compiled)
            ::regfree(&m_regex);
    }
    NameExpression(const NameExpression&) = delete;
    NameExpression& operator=(const NameExpression&) = delete;

    bool compiled() const { return m_compiled; }
    bool matches(const char* name) const
    {
        const ByteLocale bytes;
        return ::regexec(&m_regex, name, 0, nullptr, 0) == 0;
    }

private:
    regex_t m_regex = {};
    bool m_compiled = false;
};

struct DirCloser
{
    void operator()(DIR* dir) const noexcept { SRFileUtil::closedir(dir); }
};
using OpenDir = std::unique_ptr<DIR, DirCloser>;

bool isDirectory(DIR* dir, const dirent64& entry)
{
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK)
        return entry.d_type == DT_DIR;
    struct ::stat64 st = {};
    return ::fstatat64(::dirfd(dir), entry.d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

struct FindState
{
    FindState(OpenDir opened, const std::string& name) : dir(std::move(opened)), expression(name) {}

    OpenDir dir;
    NameExpression expression;
};

void FindStateDeleter::operator()(FindState* state) const noexcept
{
    delete state;
}

namespace {

FindHandle startListing(const SRString& pattern, FindData& data)
{
    SRString path;
    SRString name;
    SRFileUtil::splitPath(pattern, path, name);
    OpenDir dir(SRFileUtil::opendir(path.empty() ? SRString(L".") : path));
    if (!dir)
        return nullptr;
    FindHandle handle(new FindState(std::move(dir), SRLocaleString(name).c_str()));
    if (!handle->expression.compiled()) {
        handle.reset();
        errno = EINVAL;
        return nullptr;
    }
    FindNextFile(handle, data);
    return handle;
}

}  // namespace

FindHandle FindFirstFile(const SRString& pattern, FindData& data)
{
    data = FindData();
    return unlessOutOfMemory([&] { return startListing(pattern, data); },
                             []() -> FindHandle {
                                 errno = ENOMEM;
                                 return nullptr;
                             });
}

bool FindNextFile(const FindHandle& handle, FindData& data)
{
    data = FindData();
    if (!handle)
        return false;
    while (const dirent64* entry = ::readdir64(handle->dir.get())) {
        if (!handle->expression.matches(entry->d_name))
            continue;
        data.name = SRString::fromMultiByte(entry->d_name);
        data.attributes = isDirectory(handle->dir.get(), *entry) ? FindData::kAttributeDirectory : 0;
        return true;
    }
    return false;
}

bool FindClose(FindHandle& handle)
{
    const bool open = handle != nullptr;
    handle.reset();
    return open;
}

}  // namespace krx::util
