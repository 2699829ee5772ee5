// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "server/SRAMF3Parser.h"

#include <functional>

namespace {

// Text as strings hold it: up to its first zero byte.
std::string_view uptoZero(std::string_view text)
{
    return text.substr(0, text.find('\0'));
}

}  // namespace

unsigned SRAMF3Parser::ReadUint29()
{
    unsigned value = 0;
    for (int i = 0; i < 3; ++i) {
        const unsigned byte = GetByte();
        value = value << 7 | (byte & 0x7F);
        if (byte < 0x80)
            return value;
    }
    return value << 8 | GetByte();
}

std::string_view SRAMF3Parser::writtenText(std::size_t index) const
{
    const Written& text = m_written[index];
    return {reinterpret_cast<const char*>(getBuffer()) + text.position, text.length};
}

int SRAMF3Parser::StringTableFind(std::string_view text) const
{
    return m_writtenIndex.find(std::hash<std::string_view>()(text), [&](unsigned index) {
        return index < m_written.size() && writtenText(index) == text;
    });
}

void SRAMF3Parser::StringTableAdd(std::string_view text)
{
    const auto length = static_cast<unsigned>(text.size());
    charge(2 * sizeof(Written));
    m_written.push_back({getPosition() - length, length});
    m_writtenIndex.add(m_written.size() - 1, m_written.size(), [this](std::size_t index) {
        return std::hash<std::string_view>()(writtenText(index));
    });
}

void SRAMF3Parser::WriteAMF3String(std::string_view text)
{
    if (text.empty()) {
        WriteUint29(1);
        return;
    }
    const int index = StringTableFind(text);
    if (index >= 0) {
        WriteUint29(static_cast<unsigned>(index) * 2);
        return;
    }
    const auto length = static_cast<unsigned>(text.size());
    WriteUint29(length * 2 + 1);
    PutData(text.data(), length);
    StringTableAdd(text);
}

SRMBString SRAMF3Parser::ReadAMF3String()
{
    SRMBString text;
    readAMF3Text(text);
    return text;
}

bool SRAMF3Parser::readAMF3Text(SRMBString& text)
{
    const unsigned u29 = ReadUint29();
    if (isBad())
        return false;
    const unsigned value = u29 >> 1;
    if ((u29 & 1) == 0) {
        if (value >= m_strings.size()) {
            HandleBadData(getPosition(),
                          SRString::format(L"While reading the AMF3 string, index of string %u is found "
                                           L"greater than sting reference table length ",
                                           value));
            return false;
        }
        text = m_strings[value];
        return true;
    }
    if (value > getRemaining()) {
        HandleBadData(getPosition(),
                      SRString::format(L"Length of string %u is found greater than remaining bytes. "
                                       L"Message data is not complete",
                                       value));
        return false;
    }
    if (value == 0) {
        text.clear();
        return false;
    }
    // Also a text that begins with a zero byte takes its place in the table.
    const unsigned char* const bytes = GetData(value);
    if (!bytes)
        return false;
    if (!chargeText(value) || !charge(2 * sizeof(SRMBString)))
        return false;
    text = SRMBString::counted(uptoZero({reinterpret_cast<const char*>(bytes), value}));
    m_strings.push_back(text);
    return true;
}

void SRAMF3Parser::WriteXMLString(std::string_view text)
{
    const auto length = static_cast<unsigned>(text.size());
    WriteUint29(length * 2 + 1);
    PutData(text.data(), length);
}

SRMBString SRAMF3Parser::ReadXMLString(unsigned u29)
{
    std::string_view text;
    readXMLText(u29, text);
    return SRMBString(uptoZero(text));
}

bool SRAMF3Parser::readXMLText(unsigned u29, std::string_view& text)
{
    const TraceScope scope(*this, L"while processing xml string");
    const unsigned length = u29 >> 1;
    if (length > getRemaining()) {
        HandleBadData(getPosition(),
                      SRString::format(L"While reading the XML string, length %u of string is found "
                                       L"greater than remaining bytes ",
                                       length));
        return false;
    }
    const unsigned char* const bytes = GetData(length);
    if (!bytes)
        return false;
    text = {reinterpret_cast<const char*>(bytes), length};
    return true;
}

bool SRAMF3Parser::charge(std::size_t bytes)
{
    m_charged += bytes;
    if (isWriter()) {
        if (m_charged + getLimit() > m_memoryLimit)
            throw OutputLimitReached();
        return true;
    }
    if (m_charged <= std::min(memoryLimitFor(getLimit()), m_memoryLimit))
        return true;
    HandleBadData(getPosition(),
                  L"while processing script variable,values are found to take more memory than they may");
    return false;
}

bool SRAMF3Parser::chargeAllocated(std::size_t bytes)
{
    constexpr std::size_t kHeader = 8;
    constexpr std::size_t kAlignment = 16;
    return charge((bytes + kHeader + kAlignment - 1) / kAlignment * kAlignment);
}

bool SRAMF3Parser::chargeText(std::size_t length)
{
    constexpr std::size_t kBlockHeader = 8;
    return length == 0 || chargeAllocated(kBlockHeader + length + 1);
}
