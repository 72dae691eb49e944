#pragma once

#include <string>

namespace fs::http {

/// The URL as it is asked for: blanks and the like are encoded. "" when it is none of http or https.
std::string encoded_url(const std::string& text);

/// The URL without user, password, query and fragment: what may be shown. "" when it is none of http or https.
std::string shown_url(const std::string& text);

/// A file name of 32 hexadecimal digits for a text; which does not give the text away.
std::string hashed_name(const std::string& text);

}  // namespace fs::http
