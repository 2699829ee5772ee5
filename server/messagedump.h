// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include "server/SRCommand.h"

#include <cstddef>
#include <iosfwd>

namespace krx {

// All forms are cut, and the cut marked with "...", after SRData::kMaxTextBytes.

// One-line forms. An array is "{name: value, name: value}".

void streamSRData(std::ostream& out, const SRData& value);
void streamSRDataArray(std::ostream& out, const SRDataArray& array);
/// "id: name[number](argument, argument)"
void streamSRCommand(std::ostream& out, const SRCommand& command);
SRMBString stringizeSRData(const SRData& value);
SRMBString stringizeSRCommand(const SRCommand& command);

// Multi-line forms for diagnostics.

/// One value; each entry of an array on a line of its own. indent: levels of two blanks.
void dumpData(std::ostream& out, const SRData& value, unsigned indent = 0);
/// One numbered argument.
void dumpOneArg(std::ostream& out, int index, const SRData& value);
/// The whole command, cut after maxBytes.
SRMBString dumpCommand(const SRCommand& command, std::size_t maxBytes = SRData::kMaxTextBytes);

}  // namespace krx

namespace krx::util {

/// One-line description of a message: its header, with the time as a signed number, and the content by type.
/// Every value of a command or data message, inside arrays too, is "dataType=" with the name of its kind, and
/// the value: dates in ms since 1970.
SRMBString messageToString(const SRMessagePtr& message);

}  // namespace krx::util
