// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#include "tools/zmvutil/vidlint/src/serversettings.h"

#include "modules/streams/mp4/mp4module.h"
#include "modules/streams/raw/rawModule.h"
#include "util/streamconfigutil.h"
#include "vidlint/check.h"

#include <algorithm>
#include <span>
#include <stdexcept>

namespace vidlint {
namespace {

using krx::util::SettingKey;

const SettingKey& settingOf(const std::string& key)
{
    for (const std::span<const SettingKey> table :
         {krx::mp4::Mp4Module::settingKeys(), krx::raw::RawAdaptor::settingKeys()})
    {
        const auto found =
            std::find_if(table.begin(), table.end(), [&](const SettingKey& row) { return key == row.name; });
        if (found != table.end())
            return *found;
    }
    throw std::invalid_argument("unknown setting '" + key + "'");
}

std::string valuesOf(const SettingKey& setting)
{
    if (setting.kind == SettingKey::Kind::kBool)
        return "true or false";
    return std::to_string(setting.min) + " to " + std::to_string(setting.max);
}

}  // namespace

void checkServerSetting(const std::string& key, const std::string& value)
{
    const SettingKey& setting = settingOf(key);
    if (!krx::util::isValidSetting(setting, value))
        throw std::invalid_argument("'" + value + "' is no value of " + key + " (" + valuesOf(setting) + ")");
}

void Settings::set(const std::string& key, const std::string& value)
{
    checkServerSetting(key, value);
    m_serverSettings[key] = value;
}

}  // namespace vidlint
