// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/archive/src/statefile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <thread>

namespace archive {
namespace {

constexpr std::int64_t kApplicationId = 0x76617263;  // "varc"
constexpr std::int64_t kVersion = 1;

// The bytes of labels and names compare as such. A result is never changed: an input gets another one, and
// keeps the one of the last run that ended until the next one ends.
constexpr std::array<const char*, 7> kSchema = {
    // Labels of PATHs. prefix and the name of an input are its path.
    "CREATE TABLE root(id INTEGER PRIMARY KEY, label BLOB NOT NULL UNIQUE, prefix BLOB)",
    // How inputs are checked.
    "CREATE TABLE plan(id INTEGER PRIMARY KEY, settings BLOB NOT NULL, revision INTEGER NOT NULL,"
    " UNIQUE(settings, revision))",
    // The last run that ended, and those since then, whose ended_at is NULL.
    "CREATE TABLE run(id INTEGER PRIMARY KEY, started_at INTEGER NOT NULL, ended_at INTEGER,"
    " plan INTEGER NOT NULL, shard INTEGER NOT NULL, shards INTEGER NOT NULL, inputs INTEGER, bytes INTEGER)",
    "CREATE TABLE run_root(run INTEGER, position INTEGER, label BLOB NOT NULL, PRIMARY KEY(run, position))"
    " WITHOUT ROWID",
    "CREATE TABLE result(id INTEGER PRIMARY KEY, plan INTEGER NOT NULL, checked_at INTEGER NOT NULL,"
    " size INTEGER NOT NULL, modified_ns INTEGER NOT NULL, members INTEGER NOT NULL,"
    " reusable INTEGER NOT NULL, outcome BLOB NOT NULL, record BLOB NOT NULL)",
    // result and standing are those of the last run that ended, fresh and fresh_standing those of the runs
    // since then. seen is the last run that came across it, negative when it got no result then.
    "CREATE TABLE input(root INTEGER, name BLOB, seen INTEGER NOT NULL, result INTEGER,"
    " standing INTEGER NOT NULL, fresh INTEGER, fresh_standing INTEGER, PRIMARY KEY(root, name)) WITHOUT "
    "ROWID",
    // Inputs that were being checked when a process died, and how often.
    "CREATE TABLE crash(root INTEGER, name BLOB, plan INTEGER NOT NULL, size INTEGER NOT NULL,"
    " modified_ns INTEGER NOT NULL, members INTEGER NOT NULL, count INTEGER NOT NULL, PRIMARY KEY(root, "
    "name))"
    " WITHOUT ROWID",
};

std::int64_t askNumber(const Database& database, const char* sql)
{
    Statement statement(database, sql);
    Rows rows = statement.run();
    return rows.next() ? rows.integer(0) : 0;
}

bool isEmpty(const Database& database)
{
    return askNumber(database, "PRAGMA application_id") == 0 &&
           askNumber(database, "PRAGMA user_version") == 0 &&
           askNumber(database, "SELECT EXISTS(SELECT 1 FROM sqlite_schema)") == 0;
}

/// Throws unless it is a state of this version. A schema of another form may make SQLite run whatever it
/// holds, so it has to be ours to the letter.
void checkFormat(const Database& database, const std::string& path)
{
    if (askNumber(database, "PRAGMA application_id") != kApplicationId)
        database.fail(SQLITE_NOTADB);
    const std::int64_t version = askNumber(database, "PRAGMA user_version");
    if (version != kVersion) {
        throw StateError(path + ": the state is of version " + std::to_string(version) +
                         ", and this program uses version " + std::to_string(kVersion));
    }
    Statement statement(database, "SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL");
    Rows rows = statement.run();
    std::size_t found = 0;
    while (rows.next()) {
        if (found == kSchema.size() || rows.bytes(0) != kSchema[found])
            database.failAsDamaged();
        ++found;
    }
    if (found != kSchema.size())
        database.failAsDamaged();
}

void makeFormat(Database& database)
{
    // Bytes. Results are added one after the other, which takes fewer system calls in large pages.
    database.execute("PRAGMA page_size = 16384");
    database.execute("BEGIN IMMEDIATE");
    for (const char* const sql : kSchema)
        database.execute(sql);
    database.execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
    database.execute(("PRAGMA user_version = " + std::to_string(kVersion)).c_str());
    database.execute("COMMIT");
}

/// Reading a path that is no regular file may never end.
void checkKind(const std::string& path, bool mayBeMissing)
{
    struct stat status
    {
    };
    if (::stat(path.c_str(), &status) != 0) {
        if (errno == ENOENT && mayBeMissing)
            return;
        throw StateError(path + ": the state cannot be opened: " + std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode))
        throw StateError(path + ": the state is no regular file");
}

bool hasContent(const std::string& path)
{
    struct stat status
    {
    };
    return ::stat(path.c_str(), &status) == 0 && status.st_size != 0;
}

std::unique_ptr<Database> openAndCheck(const std::string& path, Database::Access access)
{
    auto database = std::make_unique<Database>(path, access);
    checkFormat(*database, path);
    return database;
}

/// Network file systems and those of programs do not share memory between processes, which WAL needs.
bool isLocal(const std::string& path)
{
    constexpr std::array<unsigned long, 12> kLocal = {
        0xEF53,      // ext2, ext3, ext4
        0x58465342,  // XFS
        0x9123683E,  // Btrfs
        0xF2F52010,  // F2FS
        0x2FC12FC1,  // ZFS
        0xCA451A4E,  // Bcachefs
        0x3153464A,  // JFS
        0x52654973,  // ReiserFS
        0x3434,      // NILFS
        0x4D44,      // FAT
        0x01021994,  // tmpfs
        0x794C7630,  // overlayfs
    };
    struct statfs status
    {
    };
    if (::statfs(path.c_str(), &status) != 0)
        return false;
    const auto type = static_cast<unsigned long>(status.f_type);
    return std::find(kLocal.begin(), kLocal.end(), type) != kLocal.end();
}

}  // namespace

std::unique_ptr<Database> openStateToRead(const std::string& path)
{
    checkKind(path, false);
    try {
        return openAndCheck(path, Database::Access::kRead);
    } catch (const DatabaseError& error) {
        const int kind = error.code() & 0xff;
        if (error.code() == SQLITE_READONLY_ROLLBACK || error.code() == SQLITE_READONLY_RECOVERY)
            return openAndCheck(path,
                                Database::Access::kWrite);  // what a killed process left has to be undone
        if (kind != SQLITE_CANTOPEN && kind != SQLITE_READONLY && kind != SQLITE_IOERR)
            throw;
        const std::string real = realStatePath(path);
        if (hasContent(real + "-wal") || hasContent(real + "-journal")) {
            throw StateError(
                path + ": a run has not saved all of the state, which needs a place that can be written");
        }
    }
    return openAndCheck(path, Database::Access::kReadAlone);
}

std::unique_ptr<Database> openStateToWrite(const std::string& path)
{
    checkKind(path, true);
    auto database = std::make_unique<Database>(path, Database::Access::kCreate);
    if (database->isReadOnly())
        database->fail(SQLITE_READONLY);
    if (isEmpty(*database))
        makeFormat(*database);
    checkFormat(*database, path);
    return database;
}

void beginWriting(Database& database, const std::string& path)
{
    // 16 MiB of pages; what lies beyond is read again.
    database.execute("PRAGMA cache_size = -16384");
    database.execute("PRAGMA secure_delete = OFF");
    if (isLocal(path)) {
        Statement statement(database, "PRAGMA journal_mode = WAL");
        Rows rows = statement.run();
        if (rows.next() && rows.bytes(0) == "wal") {
            database.execute("PRAGMA synchronous = NORMAL");
            // Pages, thus 64 MB, so that the disk is waited for a few times a minute at most.
            database.execute("PRAGMA wal_autocheckpoint = 4000");
            return;
        }
    }
    database.execute("PRAGMA locking_mode = EXCLUSIVE");
    database.execute("PRAGMA synchronous = FULL");
}

void endWriting(Database& database)
{
    constexpr int kAttempts = 50;
    constexpr std::chrono::milliseconds kPause{100};
    database.execute("PRAGMA locking_mode = NORMAL");
    for (int i = 0; i < kAttempts; ++i) {
        try {
            database.execute("PRAGMA journal_mode = DELETE");
            break;
        } catch (const DatabaseError& error) {
            if ((error.code() & 0xff) != SQLITE_BUSY)
                throw;
        }
        std::this_thread::sleep_for(kPause);
    }
    // The first access after an exclusive lock gives it up.
    askNumber(database, "PRAGMA user_version");
}

std::string realStatePath(const std::string& path)
{
    char* const real = ::realpath(path.c_str(), nullptr);
    if (!real)
        return path;
    std::string copy = real;
    std::free(real);
    return copy;
}

}  // namespace archive
