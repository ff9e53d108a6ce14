#pragma once

#include <cstdint>
#include <future>
#include <string>

namespace yvm::engine::test {

/// A call into C that nothing breaks, for a command to be stuck in until the test lets it go.
class StuckCall {
  public:
    /// The source of a command that calls it.
    std::string python() const { return pythonThen("partial(int)"); }
    /// Of one that makes another call behind it, with no bytecode between the two. `call` is a partial
    /// function object without code in Python; `os` and `partial` are there for it.
    std::string pythonThen(const std::string& call) const {
        return "import ctypes, operator, os\nfrom functools import partial\n"
               "list(map(operator.call, [partial(ctypes.CFUNCTYPE(None, ctypes.c_void_p)(" +
               std::to_string(reinterpret_cast<std::uintptr_t>(&stick)) + "), " +
               std::to_string(reinterpret_cast<std::uintptr_t>(this)) + "), " + call + "]));";
    }

    void waitUntilStuck() { entered_.get_future().wait(); }
    void release() { released_.set_value(); }

  private:
    static void stick(void* self) {
        auto& call = *static_cast<StuckCall*>(self);
        call.entered_.set_value();
        call.released_.get_future().wait();
    }

    std::promise<void> entered_;
    std::promise<void> released_;
};

}  // namespace yvm::engine::test
