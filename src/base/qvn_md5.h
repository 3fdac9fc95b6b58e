/// MD5 (RFC 1321), as the console's login asks for it; good for nothing that must be secret. Pure.
#pragma once

#include <array>
#include <string_view>

/// 32 lower-case hexadecimal digits and a NUL.
using qvn_md5_text = std::array<char, 33>;

/// The digest of a text of any length.
[[nodiscard]] qvn_md5_text qvn_md5(std::string_view text);
