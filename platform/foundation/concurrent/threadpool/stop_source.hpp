#pragma once

#include <stop_token>

namespace foundation::concurrent::threadpool {

/// The handle of work that was submitted; copies are handles of the same work. A stop request keeps runs from
/// beginning and does not wait for the one in progress. Dropping the handle stops nothing.
using stop_source = std::stop_source;
/// Tells whether a stop was requested.
using stop_token = std::stop_token;

}  // namespace foundation::concurrent::threadpool
