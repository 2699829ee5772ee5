// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "util/SRString.h"

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <cwchar>
#include <dirent.h>
#include <nl_types.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <utime.h>

namespace krx::util {

/// A position in a file, in bytes; -1 stands for a failure.
using FilePos = long long;

/// The toolbox of path and file operations.
///
/// A path is passed to the system as bytes, whatever the locale. On failure an operation returns a negative
/// value (int, FilePos, ssize_t), false (bool) or null (pointer), and errno has the reason. These do not
/// throw: without memory they fail with ENOMEM. Descriptors and streams are closed on exec.
class SRFileUtil
{
public:
    SRFileUtil() = delete;

    // Descriptors.

    /// Opens a file with the flags of open(2). mode counts only with O_CREAT: bit 0x80 creates with 0666,
    /// else bit 0x100 with 0444, else mode itself is the permission.
    static int open(const SRString& path, int flags, int mode = 0x80);
    static int close(int fd);
    static FilePos lseek(int fd, FilePos pos, int whence);
    /// One system call; may move fewer than n bytes.
    static ssize_t read(int fd, void* buf, std::size_t n);
    static ssize_t write(int fd, const void* buf, std::size_t n);
    /// Repeats until n bytes are read or the file ends; returns the count.
    static ssize_t readUntilDone(int fd, void* buf, std::size_t n);
    /// Repeats until n bytes are written.
    static ssize_t writeUntilDone(int fd, const void* buf, std::size_t n);
    /// Cuts or extends the file to size bytes.
    static int chsize(int fd, FilePos size);

    // Streams.

    /// Every reading mode ("r", "rb", "r+" ...) refuses a directory with EISDIR.
    static std::FILE* fopen(const SRString& path, const char* mode);
    static int fclose(std::FILE* file);
    static bool fseek(std::FILE* file, FilePos pos, int whence);
    static FilePos ftell(std::FILE* file);
    static std::size_t fread(void* buf, std::size_t size, std::size_t count, std::FILE* file);
    static std::size_t fwrite(const void* buf, std::size_t size, std::size_t count, std::FILE* file);
    static int fgetc(std::FILE* file);
    /// One character of UTF-8 text, WEOF at the end. A byte outside well-formed UTF-8 gives U+DC00 + byte, as
    /// in SRString.
    static std::wint_t fgetwc(std::FILE* file);
    static int fputc(int c, std::FILE* file);
    static int ungetc(int c, std::FILE* file);
    static int fflush(std::FILE* file);
    static bool _feof(std::FILE* file);

    /// Skips a leading byte order mark (EF BB BF), else goes to the start. Returns whether there was one.
    static bool skipUTF8Header(std::FILE* file);
    static bool skipUTF8Header(unsigned char*& data, unsigned& length);

    // Status. Symbolic links are followed.

    static int stat64(const SRString& path, struct stat64* st);
    static int stat(const SRString& path, struct stat* st);
    static int access(const SRString& path, int mode);
    static bool fileExists(const SRString& path);  ///< something of any kind
    static bool dirExists(const SRString& path);
    static bool isFile(const SRString& path);         ///< anything but a directory
    static bool isRegularFile(const SRString& path);  ///< no directory, device, socket or pipe
    /// Whether the file exists and nobody has the permission to write it.
    static bool isReadOnly(const SRString& path);
    static FilePos getFileLen(const SRString& path);
    static FilePos getFileLen(std::FILE* file);
    static FilePos getFileLen(int fd);
    /// Seconds since 1970; 0 on failure.
    static std::time_t getModifiedTime(const SRString& path);
    /// Sets the times of access and modification; null: both to now.
    static int utime(const SRString& path, const struct utimbuf* times);
    static int futime(int fd, const struct utimbuf* times);

    // Changes to the tree.

    /// Fails with EACCES when to exists already, unless both name the same place.
    static int rename(const SRString& from, const SRString& to);
    static int renameAndOverwrite(const SRString& from, const SRString& to);
    static int unlink(const SRString& path);
    static int remove(const SRString& path);  ///< a file or an empty directory
    static int rmdir(const SRString& path);
    static bool removeFile(const SRString& path);
    static bool removeDir(const SRString& path);  ///< an empty directory
    /// Removes the directory and its contents. A symbolic link is removed, never followed; path itself must
    /// not be one. Entries that vanish meanwhile do not count as failures.
    static bool removeDirRecursive(const SRString& path);
    static int mkdir(const SRString& path, mode_t mode = 0777);
    /// Creates the directory with all its missing parents; '\\' separates like '/'. True when it is there at
    /// the end.
    static bool createDir(const SRString& path);
    /// As createDir for the parent of path; true when path has none.
    static bool createParentDir(const SRString& path);
    /// Copies a regular file with its permissions. An existing target fails (EEXIST) or is overwritten; the
    /// source itself is never taken as the target.
    static bool copyFile(const SRString& from, const SRString& to, bool failIfExists);

    static DIR* opendir(const SRString& path);
    static int closedir(DIR* dir);
    static void* dlopen(const SRString& path, int flags);
    static nl_catd catopen(const SRString& path, int flag);

    // Path forms. These work on the text alone; only an absolute result may use the current directory, to
    // complete a relative path. Without memory they throw SROutOfMemory or std::bad_alloc.

    static bool isDirSep(wchar_t c) { return c == L'/' || c == L'\\'; }
    /// Splits at the last directory separator, which belongs to neither part; only a root stays in dir. dir
    /// is empty when there is no separator. The outputs may be path itself.
    static void splitPath(const SRString& path, SRString& dir, SRString& name);
    /// The directory that holds path, ignoring separators at its end; empty for a root and a bare name.
    static SRString getParentDir(const SRString& path);
    /// The absolute form, with "." and ".." resolved in the text; the file need not exist.
    static bool fullpath(SRString& out, const SRString& path);
    /// base/relative, with "." and ".." resolved; relative itself when it is absolute.
    static SRString resolvePath(const SRString& base, const SRString& relative);
    /// The way from directory base to path; path itself unless both are absolute.
    static SRString absoluteToRelativePath(const SRString& base, const SRString& path);
    /// Removes doubled separators and "." components; ".." stays, as it may follow a link.
    static SRString fixPathName(const SRString& path);
    /// Makes name a valid path component on usual file systems: forbidden characters become '_'.
    static SRString makeFileNameFriendly(const SRString& name);
    /// Replaces '\\' by '/'.
    static SRString nameToNative(const SRString& path);
    static bool isAbsolutePath(const SRString& path);
    /// Whether a path stays below its base directory: it is relative, and no ".." leaves the base on the way.
    /// '\\' separates like '/'.
    static bool isPathAllowed(const SRString& path);

    // Directories of the process. Safe from any thread.

    /// Empty on failure.
    static SRString getCurDir();
    /// What setTmpDir gave, else the environment's TMPDIR, else "/tmp".
    static SRString getTmpDir();
    static void setTmpDir(const SRString& path);
    /// What setProgramDir gave, else empty.
    static SRString getProgramDir();
    static void setProgramDir(const SRString& path);
};

/// Owns a descriptor and closes it.
class SRAutoFile
{
public:
    explicit SRAutoFile(int fd = -1) : m_fd(fd) {}
    ~SRAutoFile() { reset(); }
    SRAutoFile(const SRAutoFile&) = delete;
    SRAutoFile& operator=(const SRAutoFile&) = delete;

    int get() const { return m_fd; }
    /// Gives the descriptor up without closing it.
    int release();
    /// Closes the descriptor and takes over another one. Returns what the close returned, 0 without one.
    int reset(int fd = -1);

private:
    int m_fd;
};

}  // namespace krx::util
