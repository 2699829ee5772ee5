// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "util/SRFileUtil.h"

#include "util/SRException.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <dlfcn.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

namespace krx::util {

namespace {

/// Repeats the call while a signal interrupts it.
template <typename Call>
auto retried(Call call)
{
    decltype(call()) result;
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

/// Sets errno and returns false.
bool failed(int error)
{
    errno = error;
    return false;
}

/// Returns call(); when memory runs out, sets ENOMEM and returns failure.
template <typename Call, typename Result>
auto orFailure(Call call, Result failure)
{
    return unlessOutOfMemory(call, [&]() -> decltype(call()) {
        errno = ENOMEM;
        return failure;
    });
}

/// Returns call() for the bytes of a path, or failure as above.
template <typename Call, typename Result>
auto withBytes(const SRString& path, Call call, Result failure)
{
    return orFailure([&] { return call(SRLocaleString(path).c_str()); }, failure);
}

/// Gets the status of path; false on failure.
bool statusOf(const SRString& path, struct ::stat64& st)
{
    return SRFileUtil::stat64(path, &st) == 0;
}

/// Bytes of a UTF-8 sequence with this first byte; 0 for a byte that starts none.
unsigned sequenceLength(int lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// The character that begins with lead, a byte already read.
std::wint_t restOfCharacter(int lead, std::FILE* file)
{
    const unsigned length = sequenceLength(lead);
    char bytes[4] = {static_cast<char>(lead)};
    unsigned n = 1;
    for (; n < length; ++n) {
        const int next = std::fgetc(file);
        if (next == EOF)
            break;
        bytes[n] = static_cast<char>(next);
    }
    const SRString text = SRString::fromMultiByte(std::string_view(bytes, n));
    if (text.empty())
        return 0;  // the zero byte
    if (text.length() == 1)
        return static_cast<std::wint_t>(text[0]);
    // Not well-formed: only the first byte is taken, the others are read anew.
    while (n > 1)
        std::ungetc(static_cast<unsigned char>(bytes[--n]), file);
    return static_cast<std::wint_t>(0xDC00 + lead);
}

/// Renames unless the target exists, which fails with EACCES.
int renameToNew(const char* source, const char* target)
{
    if (::renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno == EINVAL || errno == ENOSYS) {
        // The file system does not know the exclusive form.
        struct ::stat64 st = {};
        if (::lstat64(target, &st) != 0)
            return ::rename(source, target);
        errno = EEXIST;
    }
    if (errno == EEXIST)
        errno = EACCES;
    return -1;
}

/// Makes the directory with its missing parents. Leaves bytes as it was.
bool makeDirs(std::string& bytes)
{
    for (std::size_t end = 1; end <= bytes.size(); ++end) {
        if (end != bytes.size() && bytes[end] != '/')
            continue;
        const char next = std::exchange(bytes[end], '\0');
        struct ::stat64 st = {};
        const int error = ::mkdir(bytes.c_str(), 0777) == 0 ? 0 : errno;
        const bool isThere = error == 0 || (::stat64(bytes.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
        bytes[end] = next;
        if (!isThere)
            return failed(error);
    }
    return !bytes.empty() || failed(ENOENT);
}

bool copyContents(int from, int to)
{
    constexpr std::size_t kPiece = 0x40000;
    const std::unique_ptr<unsigned char[]> piece(new (std::nothrow) unsigned char[kPiece]);
    if (!piece)
        return failed(ENOMEM);
    for (;;) {
        const ssize_t n = SRFileUtil::read(from, piece.get(), kPiece);
        if (n <= 0)
            return n == 0;
        if (SRFileUtil::writeUntilDone(to, piece.get(), static_cast<std::size_t>(n)) != n)
            return false;
    }
}

bool copyRegularFile(int source, const struct ::stat64& st, const char* name, bool failIfExists)
{
    const mode_t permission = st.st_mode & 0777;
    constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NONBLOCK;
    SRAutoFile target(retried([&] { return ::open64(name, kFlags | O_CREAT | O_EXCL, permission); }));
    const bool created = target.get() >= 0;
    if (!created) {
        if (errno != EEXIST || failIfExists)
            return false;
        target.reset(retried([&] { return ::open64(name, kFlags); }));
        struct ::stat64 old = {};
        if (target.get() < 0 || ::fstat64(target.get(), &old) != 0)
            return false;
        if (old.st_dev == st.st_dev && old.st_ino == st.st_ino)
            return failed(EEXIST);
        if (!S_ISREG(old.st_mode))
            return failed(EINVAL);
        if (SRFileUtil::chsize(target.get(), 0) != 0)
            return false;
    }
    if (copyContents(source, target.get()) && target.reset() == 0)
        return true;
    const int error = errno;
    if (created)
        ::unlink(name);
    return failed(error);
}

}  // namespace

// Descriptors.

int SRFileUtil::open(const SRString& path, int flags, int mode)
{
    mode_t permission = 0;
    if ((flags & O_CREAT) != 0) {
        if ((mode & 0x80) != 0)
            permission = 0666;
        else if ((mode & 0x100) != 0)
            permission = 0444;
        else
            permission = static_cast<mode_t>(mode);
    }
    return withBytes(
        path,
        [&](const char* name) {
            return retried([&] { return ::open64(name, flags | O_CLOEXEC, permission); });
        },
        -1);
}

int SRFileUtil::close(int fd)
{
    // The descriptor is gone even when a signal interrupts the call, so it is never repeated.
    return ::close(fd);
}

FilePos SRFileUtil::lseek(int fd, FilePos pos, int whence)
{
    return ::lseek64(fd, pos, whence);
}

ssize_t SRFileUtil::read(int fd, void* buf, std::size_t n)
{
    return retried([&] { return ::read(fd, buf, n); });
}

ssize_t SRFileUtil::write(int fd, const void* buf, std::size_t n)
{
    return retried([&] { return ::write(fd, buf, n); });
}

ssize_t SRFileUtil::readUntilDone(int fd, void* buf, std::size_t n)
{
    auto* out = static_cast<unsigned char*>(buf);
    std::size_t done = 0;
    while (done < n) {
        const ssize_t got = read(fd, out + done, n - done);
        if (got < 0)
            return got;
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

ssize_t SRFileUtil::writeUntilDone(int fd, const void* buf, std::size_t n)
{
    const auto* in = static_cast<const unsigned char*>(buf);
    std::size_t done = 0;
    while (done < n) {
        const ssize_t put = write(fd, in + done, n - done);
        if (put < 0)
            return put;
        if (put == 0) {
            errno = EIO;
            return -1;
        }
        done += static_cast<std::size_t>(put);
    }
    return static_cast<ssize_t>(done);
}

int SRFileUtil::chsize(int fd, FilePos size)
{
    return retried([&] { return ::ftruncate64(fd, size); });
}

// Streams.

std::FILE* SRFileUtil::fopen(const SRString& path, const char* mode)
{
    std::FILE* file = withBytes(
        path, [&](const char* name) { return ::fopen64(name, (std::string(mode) + 'e').c_str()); }, nullptr);
    if (!file || mode[0] != 'r')
        return file;
    struct ::stat64 st = {};
    if (::fstat64(::fileno(file), &st) == 0 && S_ISDIR(st.st_mode)) {
        std::fclose(file);
        errno = EISDIR;
        return nullptr;
    }
    return file;
}

int SRFileUtil::fclose(std::FILE* file)
{
    return std::fclose(file);
}

bool SRFileUtil::fseek(std::FILE* file, FilePos pos, int whence)
{
    return ::fseeko64(file, pos, whence) == 0;
}

FilePos SRFileUtil::ftell(std::FILE* file)
{
    return ::ftello64(file);
}

std::size_t SRFileUtil::fread(void* buf, std::size_t size, std::size_t count, std::FILE* file)
{
    return std::fread(buf, size, count, file);
}

std::size_t SRFileUtil::fwrite(const void* buf, std::size_t size, std::size_t count, std::FILE* file)
{
    return std::fwrite(buf, size, count, file);
}

int SRFileUtil::fgetc(std::FILE* file)
{
    return std::fgetc(file);
}

std::wint_t SRFileUtil::fgetwc(std::FILE* file)
{
    const int lead = std::fgetc(file);
    return lead == EOF ? WEOF : orFailure([&] { return restOfCharacter(lead, file); }, WEOF);
}

int SRFileUtil::fputc(int c, std::FILE* file)
{
    return std::fputc(c, file);
}

int SRFileUtil::ungetc(int c, std::FILE* file)
{
    return std::ungetc(c, file);
}

int SRFileUtil::fflush(std::FILE* file)
{
    return std::fflush(file);
}

bool SRFileUtil::_feof(std::FILE* file)
{
    return std::feof(file) != 0;
}

bool SRFileUtil::skipUTF8Header(std::FILE* file)
{
    unsigned char mark[3];
    unsigned char* data = mark;
    auto length = static_cast<unsigned>(std::fread(mark, 1, sizeof mark, file));
    if (skipUTF8Header(data, length))
        return true;
    fseek(file, 0, SEEK_SET);
    return false;
}

bool SRFileUtil::skipUTF8Header(unsigned char*& data, unsigned& length)
{
    static constexpr unsigned char kMark[] = {0xEF, 0xBB, 0xBF};
    if (!data || length < std::size(kMark) || !std::equal(std::begin(kMark), std::end(kMark), data))
        return false;
    data += std::size(kMark);
    length -= static_cast<unsigned>(std::size(kMark));
    return true;
}

// Status.

int SRFileUtil::stat64(const SRString& path, struct stat64* st)
{
    return withBytes(
        path, [&](const char* name) { return ::stat64(name, st); }, -1);
}

int SRFileUtil::stat(const SRString& path, struct stat* st)
{
    return withBytes(
        path, [&](const char* name) { return ::stat(name, st); }, -1);
}

int SRFileUtil::access(const SRString& path, int mode)
{
    return withBytes(
        path, [&](const char* name) { return ::access(name, mode); }, -1);
}

bool SRFileUtil::fileExists(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st);
}

bool SRFileUtil::dirExists(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) && S_ISDIR(st.st_mode);
}

bool SRFileUtil::isFile(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) && !S_ISDIR(st.st_mode);
}

bool SRFileUtil::isRegularFile(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) && S_ISREG(st.st_mode);
}

bool SRFileUtil::isReadOnly(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) && (st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

FilePos SRFileUtil::getFileLen(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) ? st.st_size : -1;
}

FilePos SRFileUtil::getFileLen(std::FILE* file)
{
    // Bytes that the stream still holds count in the length.
    return std::fflush(file) == 0 ? getFileLen(::fileno(file)) : -1;
}

FilePos SRFileUtil::getFileLen(int fd)
{
    struct ::stat64 st = {};
    return ::fstat64(fd, &st) == 0 ? st.st_size : -1;
}

std::time_t SRFileUtil::getModifiedTime(const SRString& path)
{
    struct ::stat64 st = {};
    return statusOf(path, st) ? st.st_mtime : 0;
}

int SRFileUtil::utime(const SRString& path, const struct utimbuf* times)
{
    return withBytes(
        path, [&](const char* name) { return ::utime(name, times); }, -1);
}

int SRFileUtil::futime(int fd, const struct utimbuf* times)
{
    if (!times)
        return ::futimens(fd, nullptr);
    const struct timespec both[2] = {{times->actime, 0}, {times->modtime, 0}};
    return ::futimens(fd, both);
}

// Changes to the tree.

int SRFileUtil::rename(const SRString& from, const SRString& to)
{
    const auto rename = [&] {
        const SRLocaleString source(from);
        const SRLocaleString target(to);
        SRString fullFrom;
        SRString fullTo;
        const bool isSame = fullpath(fullFrom, from) && fullpath(fullTo, to) && fullFrom == fullTo;
        return isSame ? ::rename(source.c_str(), target.c_str())
                      : renameToNew(source.c_str(), target.c_str());
    };
    return orFailure(rename, -1);
}

int SRFileUtil::renameAndOverwrite(const SRString& from, const SRString& to)
{
    return orFailure([&] { return ::rename(SRLocaleString(from).c_str(), SRLocaleString(to).c_str()); }, -1);
}

int SRFileUtil::unlink(const SRString& path)
{
    return withBytes(path, ::unlink, -1);
}

int SRFileUtil::remove(const SRString& path)
{
    return withBytes(
        path, [](const char* name) { return std::remove(name); }, -1);
}

int SRFileUtil::rmdir(const SRString& path)
{
    return withBytes(path, ::rmdir, -1);
}

bool SRFileUtil::removeFile(const SRString& path)
{
    return unlink(path) == 0;
}

bool SRFileUtil::removeDir(const SRString& path)
{
    return rmdir(path) == 0;
}

int SRFileUtil::mkdir(const SRString& path, mode_t mode)
{
    return withBytes(
        path, [&](const char* name) { return ::mkdir(name, mode); }, -1);
}

bool SRFileUtil::createDir(const SRString& path)
{
    const auto create = [&] {
        const SRString native = nameToNative(path);
        std::string bytes = SRLocaleString(native).c_str();
        if (bytes.size() >= PATH_MAX)
            return failed(ENAMETOOLONG);
        return dirExists(native) || makeDirs(bytes);
    };
    return orFailure(create, false);
}

bool SRFileUtil::createParentDir(const SRString& path)
{
    const auto create = [&] {
        const SRString parent = getParentDir(path);
        return parent.empty() || createDir(parent);
    };
    return orFailure(create, false);
}

bool SRFileUtil::copyFile(const SRString& from, const SRString& to, bool failIfExists)
{
    // A pipe must not make the open wait for its other end.
    const SRAutoFile source(open(from, O_RDONLY | O_NONBLOCK));
    struct ::stat64 st = {};
    if (source.get() < 0 || ::fstat64(source.get(), &st) != 0)
        return false;
    if (!S_ISREG(st.st_mode))
        return failed(S_ISDIR(st.st_mode) ? EISDIR : EINVAL);

    return withBytes(
        to, [&](const char* name) { return copyRegularFile(source.get(), st, name, failIfExists); }, false);
}

DIR* SRFileUtil::opendir(const SRString& path)
{
    return withBytes(path, ::opendir, nullptr);
}

int SRFileUtil::closedir(DIR* dir)
{
    return ::closedir(dir);
}

void* SRFileUtil::dlopen(const SRString& path, int flags)
{
    return withBytes(
        path, [&](const char* name) { return ::dlopen(name, flags); }, nullptr);
}

nl_catd SRFileUtil::catopen(const SRString& path, int flag)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the value by which the system says that it failed
    const auto failure = reinterpret_cast<nl_catd>(-1);
    return withBytes(
        path, [&](const char* name) { return ::catopen(name, flag); }, failure);
}

// SRAutoFile.

int SRAutoFile::release()
{
    return std::exchange(m_fd, -1);
}

int SRAutoFile::reset(int fd)
{
    const int old = std::exchange(m_fd, fd);
    return old < 0 ? 0 : SRFileUtil::close(old);
}

}  // namespace krx::util
