// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "interfaces/IQVStreamAdaptor.h"
#include "interfaces/IQVStreamContext.h"
#include "interfaces/ISegmentHolder.h"

#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace krx::test {

/// A stream context that keeps what is logged and answers from a table.
class RecordingContext : public IQVStreamContext
{
public:
    struct Line
    {
        int level;
        std::string text;
        friend bool operator==(const Line&, const Line&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Line& line)
        {
            return out << line.level << ": " << line.text;
        }
    };

    using Settings = std::map<std::string, std::string>;

    explicit RecordingContext(IKrxFileIo* fileIo = nullptr, const Settings& values = {})
        : io(fileIo), settings(values)
    {
    }

    IKrxFileIo* io;
    Settings settings;
    std::vector<Line> lines{};

    /// The lines since the last call, without those of level 5.
    std::vector<Line> takeFindings()
    {
        std::vector<Line> findings;
        for (Line& line : std::exchange(lines, {}))
            if (line.level != 5)
                findings.push_back(std::move(line));
        return findings;
    }

    unsigned getVersion() const override { return 1; }
    int getConfig(const char* key, char** value, int size) override
    {
        const auto found = settings.find(key);
        if (found == settings.end())
            return -1;
        const std::string& text = found->second;
        if (static_cast<int>(text.size()) > size)
            return static_cast<int>(text.size());
        std::memcpy(*value, text.data(), text.size());
        return 0;
    }
    void log(const char* text, unsigned short level, bool) override { lines.push_back({level, text}); }
    IKrxFileIo* getFileIo() override { return io; }
};

/// A holder that keeps copies of the messages, and refuses one on demand.
class RecordingHolder : public ISegmentHolder
{
public:
    struct Message
    {
        unsigned type;
        std::string bytes;
        unsigned time;
        friend bool operator==(const Message&, const Message&) = default;
    };

    std::vector<Message> messages{};
    std::size_t refuseAt = 0;  ///< number of the message that is refused, from 1; 0: none

    bool add(unsigned char type, void* data, unsigned length, unsigned time) override
    {
        messages.push_back({type, std::string(static_cast<const char*>(data), length), time});
        return messages.size() != refuseAt;
    }
    void addDep(unsigned, unsigned) override {}
};

}  // namespace krx::test
