// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tests/support/zmvbuilder.h"

#include <cstdint>
#include <random>
#include <string>

namespace krx::test {

/// Makes ZMV files with every kind of fault that a checker looks for: wrong times and stalls, metadata in
/// both encodings with references and circles, cut ends. The same seed gives the same files.
class ZmvGenerator
{
public:
    explicit ZmvGenerator(std::uint32_t seed) : m_random(seed) {}

    /// Below n, which is not 0.
    std::uint32_t below(std::uint32_t n) { return static_cast<std::uint32_t>(m_random()) % n; }
    /// A new file, damaged now and then.
    std::string file();
    /// The file with some of its bytes changed, repeated or cut off.
    std::string damaged(std::string file);

private:
    bool oneIn(std::uint32_t n) { return below(n) == 0; }
    template <typename Range>
    auto pick(const Range& range)
    {
        return std::begin(range)[below(static_cast<std::uint32_t>(std::size(range)))];
    }
    std::uint32_t nextTime(std::uint32_t time);
    std::string dataPayload(bool isAMF3);
    void list(Amf& out);
    void entries(Amf& out, unsigned depth);
    void value(Amf& out, unsigned depth);
    void amf3Value(Amf& out, unsigned depth);
    void amf3Text(Amf& out);
    void amf3Entries(Amf& out, unsigned depth);
    void doubling(Amf& out);

    std::mt19937 m_random;
    double m_duration = 0;  ///< of the current file, in seconds
};

}  // namespace krx::test
