#pragma once

namespace foundation::log::detail {

/// The depth of open function traces on the calling thread that were logged at entry.
int& indentation() noexcept;

}  // namespace foundation::log::detail
