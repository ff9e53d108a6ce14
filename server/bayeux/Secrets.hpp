#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace server::bayeux {

/// `bytes` random bytes of the operating system as lower-case hexadecimal digits. Throws
/// `std::runtime_error` when there is no randomness to be had.
std::string randomHex(std::size_t bytes);

/// Compares without telling by its duration how many characters are right.
bool equalInConstantTime(std::string_view given, std::string_view secret);

}  // namespace server::bayeux
