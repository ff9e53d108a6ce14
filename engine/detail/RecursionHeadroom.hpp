#pragma once

#include <pybind11/pybind11.h>

#include <algorithm>
#include <limits>

namespace yvm::engine {

/// While it lives, more calls of Python may stand on top of one another than users are allowed, since a stop
/// may be where they have none left. With the GIL held.
class RecursionHeadroom {
  public:
    static constexpr int calls = 200;

    RecursionHeadroom() { Py_SetRecursionLimit(raised_); }
    ~RecursionHeadroom() {
        // Otherwise a user has set another limit.
        if (Py_GetRecursionLimit() == raised_) {
            Py_SetRecursionLimit(limit_);
        }
    }
    RecursionHeadroom(const RecursionHeadroom&) = delete;
    RecursionHeadroom& operator=(const RecursionHeadroom&) = delete;

  private:
    const int limit_ = Py_GetRecursionLimit();
    const int raised_ = limit_ + std::min(calls, std::numeric_limits<int>::max() - limit_);
};

}  // namespace yvm::engine
