// UTF-8 and UTF-16 text on Windows: the engine speaks UTF-8, the system's wide calls UTF-16.
#pragma once

#include <string>

namespace genostat::platform {

// False when `text` is not valid UTF-8 (then `wide` is left empty).
bool utf8ToWide(const std::string& text, std::wstring& wide);
// Unpaired surrogates become U+FFFD.
std::string wideToUtf8(const std::wstring& wide);

}  // namespace genostat::platform
