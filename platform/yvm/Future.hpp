#pragma once

#include "connector/Future.hpp"

namespace yvm {

/// The engine's future is the connector's: one template, one set of states and texts.
template <typename T>
using Future = connector::Future<T>;

template <typename T>
using Promise = connector::Promise<T>;

}  // namespace yvm
