#pragma once

namespace connector::common {

/// Marks a service that the connector starts on demand: on the first traffic on a channel that its
/// bundle's manifest names as a start trigger. The component's constructor is the start, its
/// destructor the stop.
class [[gnu::visibility("default")]] DeferredService {
  public:
    virtual ~DeferredService();
};

}  // namespace connector::common
