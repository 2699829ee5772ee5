// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRException.h"
#include "util/SRFileUtil.h"

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace krx::util {

namespace {

struct TreeDirCloser
{
    void operator()(DIR* dir) const noexcept
    {
        const int error = errno;
        ::closedir(dir);
        errno = error;
    }
};
using DirHandle = std::unique_ptr<DIR, TreeDirCloser>;

/// Removes a tree, deepest entries first. Only the current directory is open, as the tree may be deeper than
/// there are descriptors. Names are looked up only in open directories: nobody can slip in a link meanwhile.
class TreeRemover
{
public:
    bool run(const std::string& top)
    {
        if (!enter(AT_FDCWD, top))
            return false;
        for (;;) {
            std::string child;
            if (!removeEntries(child))
                return false;
            if (!child.empty()) {
                if (!enter(::dirfd(m_dir.get()), child) && errno != ENOENT)
                    return false;
            } else if (m_levels.size() == 1) {
                m_dir.reset();
                return ::rmdir(top.c_str()) == 0 || errno == ENOENT;
            } else if (!leave()) {
                return false;
            }
        }
    }

private:
    /// A directory on the way down: its identity, and its name in the directory above.
    struct Level
    {
        dev_t dev;
        ino_t ino;
        std::string name;
    };

    static constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

    static DirHandle openDir(int parent, const char* name, struct ::stat64& st)
    {
        SRAutoFile file(::openat64(parent, name, kFlags));
        if (file.get() < 0 || ::fstat64(file.get(), &st) != 0)
            return nullptr;
        DirHandle dir(::fdopendir(file.get()));
        if (dir)
            file.release();
        return dir;
    }

    bool enter(int parent, const std::string& name)
    {
        struct ::stat64 st = {};
        DirHandle dir = openDir(parent, name.c_str(), st);
        if (!dir)
            return false;
        m_levels.push_back({st.st_dev, st.st_ino, name});
        m_dir = std::move(dir);
        return true;
    }

    /// Back to the directory above, where the emptied one is removed.
    bool leave()
    {
        struct ::stat64 st = {};
        DirHandle dir = openDir(::dirfd(m_dir.get()), "..", st);
        if (!dir)
            return false;
        const std::string emptied = std::move(m_levels.back().name);
        m_levels.pop_back();
        if (m_levels.back().dev != st.st_dev || m_levels.back().ino != st.st_ino) {
            errno = ESTALE;  // the emptied directory was moved
            return false;
        }
        if (::unlinkat(::dirfd(dir.get()), emptied.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT)
            return false;
        m_dir = std::move(dir);
        return true;
    }

    /// Removes entries up to the first directory, whose name child gets; empty at the end.
    bool removeEntries(std::string& child)
    {
        for (;;) {
            errno = 0;
            const dirent64* entry = ::readdir64(m_dir.get());
            if (!entry)
                return errno == 0;
            const std::string name = entry->d_name;
            if (name == "." || name == ".." || ::unlinkat(::dirfd(m_dir.get()), name.c_str(), 0) == 0 ||
                errno == ENOENT)
                continue;
            // Systems differ in the error for a directory.
            if (errno != EISDIR && errno != EPERM)
                return false;
            child = name;
            return true;
        }
    }

    DirHandle m_dir;
    std::vector<Level> m_levels;
};

}  // namespace

bool SRFileUtil::removeDirRecursive(const SRString& path)
{
    const auto remove = [&] {
        // A separator at the end would follow a link.
        std::string top = SRLocaleString(path).c_str();
        while (top.size() > 1 && top.back() == '/')
            top.pop_back();
        return TreeRemover().run(top);
    };
    return unlessOutOfMemory(remove, [] {
        errno = ENOMEM;
        return false;
    });
}

}  // namespace krx::util
