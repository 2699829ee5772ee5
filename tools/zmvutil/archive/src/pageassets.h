// Copyright (C) 2026 The vidlint authors.
// All rights reserved.

#pragma once

#include <string_view>

namespace archive {

/// What the HTML page carries in an element of its own. Made at build time from page.css and page.js.
struct PageAsset
{
    std::string_view text;
    std::string_view sha256;  ///< of the text, in hexadecimal digits
};

PageAsset styleAsset();
PageAsset scriptAsset();

}  // namespace archive
