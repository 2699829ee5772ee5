// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCSerializer.h"
#include "tests/support/hextext.h"

#include <string>
#include <string_view>
#include <vector>

namespace krx::test {

/// A reader over bytes that it keeps.
class Reader
{
public:
    explicit Reader(std::string bytes, bool throwOnBad = false)
        : m_bytes(std::move(bytes)),
          serializer(reinterpret_cast<const unsigned char*>(m_bytes.data()), static_cast<int>(m_bytes.size()),
                     throwOnBad)
    {
    }
    SRCSerializer* operator->() { return &serializer; }

    /// The next value.
    SRData get()
    {
        SRData value;
        serializer.GetVar(&value, false);
        return value;
    }
    std::vector<std::string> trace() const
    {
        std::vector<std::string> lines;
        for (const SRString& line : serializer.getErrorTrace())
            lines.emplace_back(line.toMultiByte().view());
        return lines;
    }

private:
    const std::string m_bytes;

public:
    SRCSerializer serializer;
};

inline std::string written(const SRDataParser& writer)
{
    if (!writer.getBuffer())
        return "";
    return {reinterpret_cast<const char*>(writer.getBuffer()), writer.getPosition()};
}

/// The encoding of one value in hexadecimal.
inline std::string encoded(const SRData& value, int encoding = SRDataParser::kAMF0)
{
    SRCSerializer writer;
    writer.setEncoding(encoding);
    return writer.PutVar(&value, true) ? toHex(written(writer)) : "failed";
}

inline std::string textOf(const SRData& value)
{
    return std::string(value.toText().view());
}

/// An array of a kind, as a value.
inline SRData makeArray(int kind)
{
    const SRDataArrayPtr array(new SRDataArray);
    array->setKind(kind);
    return SRData(array, kind);
}

inline SRDataArray& arrayOf(const SRData& value)
{
    return *static_cast<SRDataArray*>(value);
}

}  // namespace krx::test
