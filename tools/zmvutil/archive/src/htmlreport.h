// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "tools/zmvutil/archive/src/inputrecord.h"
#include "tools/zmvutil/archive/src/pagerow.h"
#include "tools/zmvutil/archive/src/state.h"
#include "tools/zmvutil/archive/src/summary.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace archive {

/// One HTML page about any number of inputs. It holds all that it shows and fetches nothing; totals are of
/// all inputs, rows of those with findings, at most maxInputs of them and 64 MiB. What is new is kept first,
/// then what is wrong, then what only warns. For one thread at a time.
class HtmlReport
{
public:
    static constexpr std::size_t kMaxInputs = 10'000;

    explicit HtmlReport(std::size_t maxInputs = kMaxInputs) : m_maxInputs(maxInputs) {}

    void add(const InputRecord& record);
    /// Writes the page; runs are those that the records come from.
    void write(std::ostream& out, const std::vector<RunInfo>& runs) const;

private:
    struct Row
    {
        std::uint64_t position;  ///< in the order of add
        std::string json;
    };
    /// The first inputs of a change, as HTML, and how many there are.
    struct Listed
    {
        std::vector<std::string> items;
        std::uint64_t count = 0;

        void add(const InputRecord& record);
    };

    bool hasRoomFor(PageRank rank) const;
    void keep(PageRank rank, std::string json);
    void dropLast();
    std::size_t rowCount() const;
    void writeRows(std::ostream& out) const;
    void writeChanges(std::ostream& out) const;

    Summary m_summary;
    std::size_t m_maxInputs;
    std::array<std::vector<Row>, kPageRanks> m_rows;  ///< by rank
    std::size_t m_rowBytes = 0;
    std::uint64_t m_withFindings = 0;
    Listed m_newFaults;  ///< inputs that are new and have something wrong
    Listed m_fixed;
    Listed m_gone;
};

}  // namespace archive
