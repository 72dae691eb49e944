#pragma once

#include <string>

namespace fs::http {

/// The URL without user, password, query and fragment: what may be shown. "" when it is none of http or https.
std::string shown_url(const std::string& url);

/// A file name of 32 hexadecimal digits for a text; the text is not to be had from it.
std::string hashed_name(const std::string& text);

}  // namespace fs::http
