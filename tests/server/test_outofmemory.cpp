// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// How values and files fail when memory runs out at any allocation.

#include "server/KRXASyncFileIo.h"
#include "server/KRXSyncFileIo.h"
#include "server/SRCommand.h"
#include "tests/server/serializerfixture.h"
#include "tests/support/failingallocations.h"
#include "tests/support/tempdir.h"
#include "util/SRException.h"
#include "util/SRFileUtil.h"
#include "util/autofile.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace krx::test {
namespace {

// Every sort of value, with references.
const char kValue[] =
    "03 0001 'a' 0A 00000002 02 0001 'x' 05 0001 'r' 07 0001 0001 'b' 20 00000001 FF 0001 'd' "
    "11 09 03 03 'n' 08 01 3FF0000000000000 01 0A 1B 03 'C' 03 'm' 06 07 'abc' 03 'e' 07 03 'x' 01 0000 09";

enum class Outcome
{
    kDone,
    kFailed,  ///< by the result
    kFileReadException,
    kNoMemory,  ///< SROutOfMemory or std::bad_alloc
    kBadData,
};

template <typename Operation>
Outcome outcomeOf(const Operation& operation)
{
    try {
        return operation() ? Outcome::kDone : Outcome::kFailed;
    } catch (const util::FileReadException&) {
        return Outcome::kFileReadException;
    } catch (const SRBreakConnection&) {
        return Outcome::kBadData;
    } catch (const SROutOfMemory&) {
        return Outcome::kNoMemory;
    } catch (const std::bad_alloc&) {
        return Outcome::kNoMemory;
    }
}

/// An operation and the one way in which it may end early.
struct Case
{
    const char* name;
    Outcome always;  ///< with all the memory
    Outcome without;
    std::function<bool()> operation;
};

/// check receives each outcome and the number of the allocation that failed.
void expectOutcomes(const std::vector<Case>& cases, const std::function<void(unsigned)>& check)
{
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Outcome outcome = Outcome::kDone;
        withEachAllocationFailing(
            [&] { outcome = outcomeOf(c.operation); },
            [&](unsigned failed) {
                // Some allocations only save time.
                EXPECT_TRUE(outcome == c.always || (failed != 0 && outcome == c.without)) << failed;
                check(failed);
            });
    }
}

TEST(OutOfMemory, ReadingGivesTheValueOrSaysThatItStarved)
{
    const std::string bytes = hexText(kValue);
    const std::string whole = textOf(Reader(bytes).get());
    for (const bool skips : {false, true}) {
        std::optional<Reader> reader;
        SRData value;
        int marker = 0;
        withEachAllocationFailing(
            [&] {
                try {
                    reader.emplace(bytes);
                    marker = skips ? (*reader)->skipVar() : (*reader)->GetVar(&value, false);
                } catch (const std::bad_alloc&) {
                    reader.reset();  // of the test's own copy of the bytes
                }
            },
            [&](unsigned failed) {
                EXPECT_TRUE(!reader || (*reader)->hasReadStarved() == (failed != 0)) << failed;
                EXPECT_TRUE(failed != 0 || (marker == 3 && (skips || textOf(value) == whole)));
            });
    }
}

TEST(OutOfMemory, WritingGoesBackOrIsWhole)
{
    Reader reader(hexText(kValue));
    const SRData value = reader.get();
    for (const int encoding : {SRDataParser::kAMF0, SRDataParser::kAMF3}) {
        const std::string whole = encoded(value, encoding);
        std::optional<SRCSerializer> writer;
        bool done = false;
        withEachAllocationFailing(
            [&] {
                writer.emplace();
                writer->setEncoding(encoding);
                done = writer->PutVar(&value, true);
            },
            [&](unsigned failed) {
                EXPECT_EQ(done, failed == 0) << failed;
                EXPECT_EQ(writer->hasWriteStarved(), failed != 0) << failed;
                EXPECT_EQ(toHex(written(*writer)), failed == 0 ? whole : "") << failed;
            });

        SRCommand command;
        command.setEncoding(encoding);
        command.setMethodName("m");
        command.setUserArg(value);
        expectOutcomes({{"message", Outcome::kDone, Outcome::kNoMemory,
                         [&] { return command.getDataResponse() != nullptr; }}},
                       [](unsigned) {});
    }
}

TEST(OutOfMemory, CommandsPassNoPartForTheWhole)
{
    for (const char* const end : {"", " 0E", " 02 00"}) {
        const std::string body = hexText("02 0001 'm'" + std::string(kValue) + end);
        for (const bool throwFlag : {false, true}) {
            const auto arguments = [&] {
                return SRCommand(kMsgData, reinterpret_cast<const unsigned char*>(body.data()),
                                 static_cast<int>(body.size()), throwFlag)
                    .argCount();
            };
            int whole = -1;
            const Outcome usual = outcomeOf([&] { return (whole = arguments()) >= 0; });
            expectOutcomes({{end, usual, Outcome::kNoMemory, [&] { return arguments() == whole; }}},
                           [](unsigned) {});
        }
    }
}

/// Each operation ends in the way that its header states, and leaves nothing open.
TEST(OutOfMemory, FilesFailAsTheirHeadersSay)
{
    const TempDir dir;
    SRThreadPool pool(1);
    SimpleKrxSyncFileIo io;
    SimpleKrxASyncFileIo async(&pool, util::kVerboseNone);
    const std::string content(1000, 'x');
    const SRString source = dir.write("source", content);
    const SRString missing = dir.file("missing");
    const SRString target = dir.file("a/b/target");
    const SRString tree = dir.file("a");
    const SRString copy = dir.file("a/copy");
    const SRString renamed = dir.file("a/renamed");
    const SRString pattern = dir.file("sou*");
    const auto callAll = [&](IKrxFileIo& files) {
        std::vector<SRString> names;
        struct stat64 st;
        const IoAutoFile file(&files, source, O_RDONLY, 0, &st);
        return file.get() >= 0 && files.stat(source, &st, IKrxFileIo::kFile) == 0 &&
               files.createDir(target) == 0 &&
               files.remove(tree, IKrxFileAdaptor::kRemoveDirRecursive, true) == 0 &&
               files.readDir(pattern, names) == 0 && names.size() == 1;
    };
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    ASSERT_TRUE(callAll(async));  // a thread that only starts may have files open, as sanitizers do
    const auto open = openDescriptors();
    expectOutcomes({{"load", Outcome::kDone, Outcome::kFileReadException,
                     [&] { return util::AutoFileLoad(source, &io).getBuffer().length() == content.size(); }},
                    {"load a missing file", Outcome::kFileReadException, Outcome::kFileReadException,
                     [&] { return util::AutoFileLoad(missing, &io).remaining() != 0; }},
                    {"save", Outcome::kDone, Outcome::kFileReadException,
                     [&] {
                         util::AutoFileSave save(target, &io, 16);
                         save.write(content.data(), static_cast<unsigned>(content.size()));
                         save.flush();
                         return true;
                     }},
                    {"change the tree", Outcome::kDone, Outcome::kFailed,
                     [&] {
                         return util::SRFileUtil::createDir(tree) &&
                                util::SRFileUtil::copyFile(source, copy, true) &&
                                util::SRFileUtil::rename(copy, renamed) == 0 &&
                                util::SRFileUtil::removeDirRecursive(tree);
                     }},
                    {"calls", Outcome::kDone, Outcome::kFailed, [&] { return callAll(io); }},
                    {"calls in a pool", Outcome::kDone, Outcome::kFailed, [&] { return callAll(async); }}},
                   [&](unsigned failed) {
                       EXPECT_EQ(openDescriptors(), open) << failed;
                       std::filesystem::remove_all(dir.bytes("a"));
                   });
}

}  // namespace
}  // namespace krx::test
