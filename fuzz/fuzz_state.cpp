// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

// Reads a state of vidlint-archive, lists all that is in it, and reads it again: it says the same, and was
// not changed.

#include "fuzz/fuzzing.h"
#include "tests/support/tempdir.h"
#include "tools/zmvutil/archive/src/recordjson.h"
#include "tools/zmvutil/archive/src/state.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <sqlite3.h>
#include <string>

namespace {

using archive::InputRecord;
using archive::State;

/// SQLite may take this much; the input has 64 KB at most.
constexpr long long kMemoryLimit = 16LL << 20;

/// All that the state says, and the sentence that ends it.
std::string listed(const std::string& path)
{
    std::string text;
    try {
        State state(path, State::Mode::kRead);
        text += state.hasUnfinishedRun() ? "unfinished\n" : "\n";
        if (const auto totals = state.totals())
            text += std::to_string(totals->inputs) + ' ' + std::to_string(totals->bytes) + '\n';
        InputRecord last;
        bool isFirst = true;
        state.forEach([&](const InputRecord& record) {
            require(record.change.has_value());
            require(isFirst || last.root < record.root ||
                    (last.root == record.root && last.name < record.name));
            isFirst = false;
            last = record;
            text += toJson(record) + '\n';
            return true;
        });
        for (const std::string& label : state.lastRun().roots)
            text += label + '\n';
    } catch (const archive::StateError& error) {
        text += error.what();
        require(text.find(path + ": ") != std::string::npos);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const krx::test::TempDir dir;
    sqlite3_hard_heap_limit64(kMemoryLimit);
    const std::string bytes(data, data + size);
    dir.write("state", bytes);
    const std::string text = listed(dir.bytes("state"));
    require(listed(dir.bytes("state")) == text);
    require(dir.read("state") == bytes);
    namespace fs = std::filesystem;
    for (const char* const beside : {"state-wal", "state-shm", "state-journal"})
        fs::remove(dir.bytes(beside));
    require(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()) == 1);
    return 0;
}
