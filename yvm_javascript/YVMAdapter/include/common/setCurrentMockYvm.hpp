#pragma once

namespace yvm {

class YVM;

namespace unittest {

/// Puts `engine` in the place of the engine of this process, for the text of commands alone: discovery is not
/// touched. The module does not own it; it must outlive its use, and null ends that use. Safe from any
/// thread.
[[gnu::visibility("default")]] void setCurrentMockYvm(YVM* engine);

}  // namespace unittest

namespace JSClient {

/// What `setCurrentMockYvm` stored last; null in normal use.
YVM* currentMockYvm() noexcept;

}  // namespace JSClient
}  // namespace yvm
